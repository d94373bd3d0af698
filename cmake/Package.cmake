# Debian packages from the installed components: `cpack -G DEB` in the build folder leaves libtavport1, libtavport-dev
# and tavport-tools there.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavport)
set(CPACK_PACKAGE_VENDOR "The TavPort developers")
set(CPACK_PACKAGE_CONTACT "The TavPort developers <maintainers@tavport.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/PackageTools.cmake)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(library_package libtavport${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtavport-dev)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tavport-tools)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Windows-style programming interface for Linux")
set(about "TavPort lets code written against a Windows-style programming interface run
on Linux: file handles, folders, threads, synchronisation, paths, drives,
copying, code modules and 16-bit text, and names files by virtual paths.\n")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${about}
This package holds the shared library.")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${about}
This package holds the header, the CMake and pkg-config files, and the
framework that application bundles carry.")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${about}
This package holds tav, which lists, copies, moves and deletes files, tells
what is known of them, and shows drives and virtual paths.")

# Which version of the library brought each symbol, and that the loader's cache changes with it.
set(control ${CMAKE_CURRENT_BINARY_DIR}/debian)
list(TRANSFORM symbols APPEND "@TAVPORT_${PROJECT_VERSION_MAJOR} 1.0.0" OUTPUT_VARIABLE versioned)
list(JOIN versioned "\n " versioned)
file(WRITE ${control}/symbols
     "libTavPort.so.${PROJECT_VERSION_MAJOR} ${library_package} #MINVER#\n TAVPORT_${PROJECT_VERSION_MAJOR}@TAVPORT_${PROJECT_VERSION_MAJOR} 1.0.0\n ${versioned}\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control}/symbols ${control}/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY =)

# Each package says where it comes from and what changed; the client has its manual page.
find_program(TAVPORT_GZIP gzip REQUIRED)
foreach(file changelog tav.1)
  execute_process(COMMAND ${TAVPORT_GZIP} -9nc ${CMAKE_SOURCE_DIR}/packaging/${file}
                  OUTPUT_FILE ${control}/${file}.gz COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/${file})
endforeach()
install(FILES ${control}/tav.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
foreach(pair runtime=${library_package} development=libtavport-dev tools=tavport-tools)
  string(REPLACE "=" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES packaging/copyright ${control}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          COMPONENT ${component})
endforeach()
include(CPack)
