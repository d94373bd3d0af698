# Sanitizers go on everything, the tests included, so that a report has no blind spots.
if(TAVPORT_SANITIZE)
  add_compile_options(-fsanitize=${TAVPORT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVPORT_SANITIZE})
endif()
