# `cmake --install` and, through it, the packages. Three components: `runtime` (the library), `development` (header,
# CMake package, pkg-config file, framework for bundles) and `tools` (the command-line client).
# Debian looks into lib/<machine> below every prefix, so one tree serves `cmake --install` and its packages.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Where libraries are installed")
endif()
set(CMAKE_INSTALL_SO_NO_EXE ON)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

tavport_add_shared_library(tavport_shared)
set_target_properties(tavport_shared PROPERTIES
  OUTPUT_NAME TavPort EXPORT_NAME TavPort VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(tavport_shared INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS tavport_shared EXPORT TavPort
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/TavPort.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# An application bundle carries a framework of its own; this is the one that it gets.
set(framework_folder ${CMAKE_INSTALL_LIBDIR}/TavPort)
install(TARGETS TavPort LIBRARY DESTINATION ${framework_folder}/TavPort.framework/Versions/A COMPONENT development)
install(DIRECTORY ${framework} DESTINATION ${framework_folder} COMPONENT development
        PATTERN Versions/A/TavPort EXCLUDE)

install(TARGETS tav RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/TavPort)
install(EXPORT TavPort NAMESPACE TavPort:: FILE TavPortTargets.cmake DESTINATION ${package_folder}
        COMPONENT development)
configure_package_config_file(cmake/TavPortConfig.cmake.in TavPortConfig.cmake
  INSTALL_DESTINATION ${package_folder} PATH_VARS framework_folder)
write_basic_package_version_file(TavPortConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TavPortConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/TavPortConfigVersion.cmake
        cmake/Bundle.cmake DESTINATION ${package_folder} COMPONENT development)

# Relative to where the file lies, so that an installed tree may be moved.
file(RELATIVE_PATH pkgconfig_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pkgconfig_prefix ${pkgconfig_prefix})
configure_file(cmake/TavPort.pc.in TavPort.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TavPort.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

include(Package)
