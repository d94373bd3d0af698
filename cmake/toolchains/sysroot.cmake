# What the foreign toolchains share; the including file has set tavport_triplet, tavport_multiarch and
# tavport_loader.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${tavport_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${tavport_triplet}-g++)

if(DEFINED ENV{TAVPORT_SYSROOT_${TAVPORT_DEBIAN_ARCHITECTURE}})
  set(CMAKE_SYSROOT $ENV{TAVPORT_SYSROOT_${TAVPORT_DEBIAN_ARCHITECTURE}})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(CMAKE_SYSROOT $ENV{XDG_CACHE_HOME}/tavport/sysroot-${TAVPORT_DEBIAN_ARCHITECTURE})
else()
  set(CMAKE_SYSROOT $ENV{HOME}/.cache/tavport/sysroot-${TAVPORT_DEBIAN_ARCHITECTURE})
endif()
if(NOT EXISTS ${CMAKE_SYSROOT}/.complete)
  message(FATAL_ERROR "No sysroot at ${CMAKE_SYSROOT}. Make it with:  cmake/make-sysroot ${TAVPORT_DEBIAN_ARCHITECTURE}")
endif()

# The cross linker knows its own folders only: name the sysroot's, also for libraries that libraries need.
set(tavport_libraries ${CMAKE_SYSROOT}/usr/lib/${tavport_multiarch} ${CMAKE_SYSROOT}/lib/${tavport_multiarch})
set(tavport_link_flags "")
foreach(folder IN LISTS tavport_libraries)
  string(APPEND tavport_link_flags " -L${folder} -Wl,-rpath-link,${folder}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${tavport_link_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${tavport_link_flags}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${tavport_link_flags}")

# Programs name the sysroot's loader and libraries themselves, so that a test that starts itself again needs no wrapper.
# The old form of run path reaches the libraries that libraries need.
list(JOIN tavport_libraries ":" tavport_run_path)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/${tavport_loader}"
              " -Wl,--disable-new-dtags -Wl,-rpath,${tavport_run_path}")

set(CMAKE_C_FLAGS_INIT "-isystem ${CMAKE_SYSROOT}/usr/include/${tavport_multiarch}")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${CMAKE_SYSROOT}/usr/include/${tavport_multiarch}")

set(CMAKE_LIBRARY_ARCHITECTURE ${tavport_multiarch})
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${tavport_multiarch}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
