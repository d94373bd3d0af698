# tavport_add_tests(folder [LIBRARIES ...]): the executable test_<folder> from the folder's *_test.cpp.
# tavport_add_fault_tests(folder): the executable test_<folder>_faults from its *_faults.cpp, in which every platform
#   operation and every allocation goes through tests/support/faults.
# tavport_precompile(target): gives an executable the test framework's header compiled, once for all of them;
#   the first must not have definitions that the others lack.
# tavport_register_tests(target prefix): makes ctest entries of an executable's tests. Each runs in a process of its own
# with its own time-out.
find_package(GTest REQUIRED)
include(GoogleTest)

function(tavport_precompile target)
  get_property(first GLOBAL PROPERTY TAVPORT_PRECOMPILED)
  if(first)
    target_precompile_headers(${target} REUSE_FROM ${first})
  else()
    target_precompile_headers(${target} PRIVATE <gtest/gtest.h>)
    set_property(GLOBAL PROPERTY TAVPORT_PRECOMPILED ${target})
  endif()
endfunction()

function(tavport_register_tests target prefix)
  gtest_discover_tests(${target} TEST_PREFIX ${prefix}/ PROPERTIES TIMEOUT 300 DISCOVERY_MODE PRE_TEST
                       DISCOVERY_TIMEOUT 60)
endfunction()

function(tavport_add_tests folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${folder} ${sources})
  target_link_libraries(test_${folder} PRIVATE tavport_test_support ${arg_LIBRARIES} GTest::gtest_main)
  tavport_precompile(test_${folder})
  tavport_register_tests(test_${folder} ${folder})
endfunction()

# By its path everywhere: with an emulator CTest would run the imported target under it, like any executable.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

# The forwarding layer, made from the seam's own declarations whenever they change.
file(GLOB seam_headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/*.h)
set(forwarders ${CMAKE_BINARY_DIR}/tests/forwarders)
add_custom_command(OUTPUT ${forwarders}.cpp ${forwarders}.rsp
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tests/support/make_forwarders.py ${CMAKE_SOURCE_DIR}/platform
          ${forwarders}.cpp ${forwarders}.rsp
  DEPENDS ${CMAKE_SOURCE_DIR}/tests/support/make_forwarders.py ${seam_headers}
  COMMENT "Making the forwarding layer of the seam"
  VERBATIM)
add_custom_target(tavport_forwarders DEPENDS ${forwarders}.cpp ${forwarders}.rsp)

function(tavport_add_fault_tests folder)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_faults.cpp)
  if(NOT sources)
    return()
  endif()
  set(target test_${folder}_faults)
  # The library's objects themselves, not the archive: the forwarders refer to operations weakly, which takes nothing
  # out of an archive.
  add_executable(${target} ${sources} $<TARGET_OBJECTS:tavport_logic> $<TARGET_OBJECTS:tavport_provider>)
  target_link_libraries(${target} PRIVATE tavport_faults GTest::gtest_main)
  tavport_precompile(${target})
  tavport_register_tests(${target} ${folder}-faults)
endfunction()
