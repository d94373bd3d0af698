# tavport_add_tests(folder [LIBRARIES ...]): the executable test_<folder> from the folder's *_test.cpp.
# tavport_register_tests(target prefix): makes ctest entries of an executable's tests. Each runs in a process of its own
# with its own time-out; under emulation, where a start costs more than most tests, they run in a few shards.
find_package(GTest REQUIRED)
include(GoogleTest)

function(tavport_register_tests target prefix)
  if(NOT TAVPORT_EMULATED)
    gtest_discover_tests(${target} TEST_PREFIX ${prefix}/ PROPERTIES TIMEOUT 300 DISCOVERY_MODE PRE_TEST)
    return()
  endif()
  set(shards 4)
  foreach(shard RANGE 1 ${shards})
    set(name ${prefix}/shard-${shard}-of-${shards})
    math(EXPR index "${shard} - 1")
    add_test(NAME ${name} COMMAND ${target} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 1500
                         ENVIRONMENT "GTEST_TOTAL_SHARDS=${shards};GTEST_SHARD_INDEX=${index}")
  endforeach()
endfunction()

function(tavport_add_tests folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${folder} ${sources})
  target_link_libraries(test_${folder} PRIVATE tavport_test_support ${arg_LIBRARIES} GTest::gtest_main)
  target_precompile_headers(test_${folder} PRIVATE <gtest/gtest.h>)
  tavport_register_tests(test_${folder} ${folder})
endfunction()
