# Big-endian 32-bit: the distribution's cross compiler with the headers and the C library that come along with it. There is
# no archive to make a sysroot from.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc-static -L /usr/powerpc-linux-gnu)
