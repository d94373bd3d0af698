# 32-bit x86: the distribution's cross compiler against a sysroot of its own (cmake/make-sysroot i386).
set(TAVPORT_DEBIAN_ARCHITECTURE i386)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(tavport_triplet i686-linux-gnu)
set(tavport_multiarch i386-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)

# This processor runs the programs itself, with the sysroot's loader named inside them, so that a test that starts
# itself again needs no wrapper. The old form of run path reaches the libraries that libraries need.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/ld-linux.so.2"
              " -Wl,--disable-new-dtags"
              " -Wl,-rpath,${CMAKE_SYSROOT}/lib/i386-linux-gnu:${CMAKE_SYSROOT}/usr/lib/i386-linux-gnu")
