# The target `docs`: the pages of docs/ and the reference of the header as HTML in the build folder's docs/html.
find_package(Doxygen COMPONENTS dot)
find_program(TAVPORT_AWK awk)
if(DOXYGEN_FOUND AND TAVPORT_AWK)
  configure_file(docs/Doxyfile.in Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND Doxygen::doxygen ${CMAKE_CURRENT_BINARY_DIR}/Doxyfile
    COMMENT "Writing the documentation into ${CMAKE_BINARY_DIR}/docs/html"
    VERBATIM)
endif()
