# Big-endian 64-bit: the distribution's cross compiler against a sysroot of its own (cmake/make-sysroot s390x), the
# programs run under user emulation.
set(TAVPORT_DEBIAN_ARCHITECTURE s390x)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(tavport_triplet s390x-linux-gnu)
set(tavport_multiarch s390x-linux-gnu)
set(tavport_loader ld64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)

# Without the sysroot as the emulator's prefix: it would open "/" and "/tmp" there for some calls and here for others.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x-static)
