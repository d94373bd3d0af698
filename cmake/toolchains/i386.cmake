# 32-bit x86: the distribution's cross compiler against a sysroot of its own (cmake/make-sysroot i386).
set(TAVPORT_DEBIAN_ARCHITECTURE i386)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(tavport_triplet i686-linux-gnu)
set(tavport_multiarch i386-linux-gnu)
set(tavport_loader ld-linux.so.2)
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)
