# What the compiler, the C library and the loader can check of the library while it runs at little cost. Not beside
# sanitizers, which check more of the same, and not without optimisation, on which the C library's part depends.
#
# tavport_hardening: to be linked by the parts of the library.
add_library(tavport_hardening INTERFACE)
if(NOT TAVPORT_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(tavport_hardening INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS
                                                     -fstack-protector-strong)
  target_link_options(tavport_hardening INTERFACE -Wl,-z,relro,-z,now)
  include(CheckCXXCompilerFlag)
  foreach(flag -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "TAVPORT_HAS${flag}" has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
      target_compile_options(tavport_hardening INTERFACE ${flag})
    endif()
  endforeach()
endif()
