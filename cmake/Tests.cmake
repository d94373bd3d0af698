# tavport_add_tests(folder [LIBRARIES ...]): one executable from the folder's *_test.cpp; each test runs in a process
# of its own with its own time-out.
find_package(GTest REQUIRED)
include(GoogleTest)

function(tavport_add_tests folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${folder} ${sources})
  target_link_libraries(test_${folder} PRIVATE tavport_test_support ${arg_LIBRARIES} GTest::gtest_main)
  target_precompile_headers(test_${folder} PRIVATE <gtest/gtest.h>)
  gtest_discover_tests(test_${folder} TEST_PREFIX ${folder}/ PROPERTIES TIMEOUT 300 DISCOVERY_MODE PRE_TEST)
endfunction()
