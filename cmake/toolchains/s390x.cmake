# Big-endian 64-bit: the distribution's cross compiler against a sysroot of its own (cmake/make-sysroot s390x), the
# programs run under user emulation.
set(TAVPORT_DEBIAN_ARCHITECTURE s390x)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(tavport_triplet s390x-linux-gnu)
set(tavport_multiarch s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x-static -L ${CMAKE_SYSROOT})
