# tavport_add_application_bundle(target): places an executable at Name.app/Contents/MacOS/Name with the framework
# beside it, found through a run path relative to the executable. The same file serves this tree and, installed, the
# projects that find the package; TAVPORT_FRAMEWORK says where the framework lies.
function(tavport_add_application_bundle target)
  get_property(framework GLOBAL PROPERTY TAVPORT_FRAMEWORK)
  set(contents ${CMAKE_CURRENT_BINARY_DIR}/${target}.app/Contents)
  target_link_libraries(${target} PRIVATE TavPort::Framework)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${contents}/MacOS
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN/../Frameworks/TavPort.framework/Versions/A")
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E make_directory ${contents}/Frameworks
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${contents}/Frameworks/TavPort.framework
    COMMAND cp -a ${framework} ${contents}/Frameworks/
    COMMENT "Placing the framework in ${target}.app"
    VERBATIM)
endfunction()
