# The target `docs`: the pages of docs/ and the reference of the header as HTML in the build folder's docs/html.
find_package(Doxygen COMPONENTS dot)
find_program(TAVPORT_AWK awk)
if(DOXYGEN_FOUND AND TAVPORT_AWK)
  configure_file(docs/Doxyfile.in Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND Doxygen::doxygen ${CMAKE_CURRENT_BINARY_DIR}/Doxyfile
    COMMENT "Writing the documentation into ${CMAKE_BINARY_DIR}/docs/html"
    VERBATIM)
else()
  add_custom_target(docs
    COMMAND ${CMAKE_COMMAND} -E echo
            "The pages need the packages doxygen, graphviz and mawk: install them, then configure again."
    COMMAND ${CMAKE_COMMAND} -E false
    VERBATIM)
endif()
