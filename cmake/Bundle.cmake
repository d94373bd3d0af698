# tavport_add_application_bundle(target): places an executable at Name.app/Contents/MacOS/Name with the framework
# beside it, found through a run path relative to the executable.
function(tavport_add_application_bundle target)
  set(contents ${CMAKE_CURRENT_BINARY_DIR}/${target}.app/Contents)
  target_link_libraries(${target} PRIVATE TavPort)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${contents}/MacOS
    BUILD_RPATH "$ORIGIN/../Frameworks/TavPort.framework/Versions/A"
    BUILD_WITH_INSTALL_RPATH OFF
    SKIP_BUILD_RPATH OFF)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E make_directory ${contents}/Frameworks
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${contents}/Frameworks/TavPort.framework
    COMMAND cp -a ${CMAKE_BINARY_DIR}/TavPort.framework ${contents}/Frameworks/
    COMMENT "Placing the framework in ${target}.app"
    VERBATIM)
endfunction()
