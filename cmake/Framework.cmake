# Lays TavPort out as a framework: Versions/A holds the library, its header and its property list, and links at the
# top lead to them.
set(framework ${CMAKE_BINARY_DIR}/TavPort.framework)
set_target_properties(TavPort PROPERTIES
  PREFIX "" SUFFIX "" OUTPUT_NAME TavPort
  LIBRARY_OUTPUT_DIRECTORY ${framework}/Versions/A)

configure_file(${CMAKE_SOURCE_DIR}/cmake/Info.plist.in ${framework}/Versions/A/Resources/Info.plist @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/include/TavPort.h ${framework}/Versions/A/Headers/TavPort.h COPYONLY)

function(framework_link target name)
  file(CREATE_LINK ${target} ${framework}/${name} SYMBOLIC)
endfunction()
framework_link(A Versions/Current)
framework_link(Versions/Current/TavPort TavPort)
framework_link(Versions/Current/Headers Headers)
framework_link(Versions/Current/Resources Resources)

# Under this name also for projects that find the installed package.
add_library(TavPort::Framework ALIAS TavPort)
set_property(GLOBAL PROPERTY TAVPORT_FRAMEWORK ${framework})
