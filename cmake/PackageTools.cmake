# Read by cpack. Without this tool it would make packages that name no dependencies, and say nothing.
find_program(TAVPORT_SHLIBDEPS dpkg-shlibdeps)
if(NOT TAVPORT_SHLIBDEPS)
  message(FATAL_ERROR "dpkg-shlibdeps, which tells what a package depends on, is not installed: it comes with dpkg-dev.")
endif()
