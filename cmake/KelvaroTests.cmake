# Debian's build of GoogleTest, with every sanitizer too. The Windows compilers get one from Debian's source package.
if(WIN32)
  set(KELVARO_GTEST_SOURCE "/usr/src/googletest" CACHE PATH "GoogleTest's source tree")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory("${KELVARO_GTEST_SOURCE}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  # Nothing is measured in the test programs, and optimising them is most of the build's time.
  target_compile_options(gtest PRIVATE -O0)
else()
  find_package(GTest REQUIRED)
  add_library(gtest ALIAS GTest::gtest)
  add_library(gtest_main ALIAS GTest::gtest_main)
endif()

# kelvaro_add_test(NAME [X64_ONLY] [THREADS] [SHARDS n] SOURCES file... LIBS target...): one GoogleTest program, a single test
# for CTest, so that all its cases share one simulator. X64_ONLY: not built for 32-bit Windows. THREADS: its tests start
# threads; the thread sanitizer's build has no others. SHARDS: CTest runs the cases in n tests, NAME_1 to NAME_n, that can run
# at the same time.
if(WIN32)
  # test-windows.sh runs what this file lists.
  file(WRITE "${CMAKE_BINARY_DIR}/tests.txt" "")
endif()
# With one thread, the thread sanitizer has nothing to find.
if(KELVARO_SANITIZER STREQUAL "thread")
  set(KELVARO_THREADS_ONLY ON)
endif()
# This check is for the code under test; in the tests themselves it would make compiling them take half as long again.
if(KELVARO_SANITIZER MATCHES "undefined")
  set(KELVARO_TEST_OPTIONS -fno-sanitize=undefined)
endif()
# All test programs that this build runs.
add_custom_target(test_programs ALL)
# Precompiles the headers that nearly all test sources include.
file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/test_headers.cpp" CONTENT "")
add_library(kelvaro_test_headers OBJECT EXCLUDE_FROM_ALL "${CMAKE_BINARY_DIR}/test_headers.cpp")
target_link_libraries(kelvaro_test_headers PRIVATE kelvaro_options kelvaro_nlohmann gtest Threads::Threads)
set_target_properties(kelvaro_test_headers PROPERTIES KELVARO_UNOPTIMISED ON POSITION_INDEPENDENT_CODE OFF)
target_compile_options(kelvaro_test_headers PRIVATE -fpch-preprocess ${KELVARO_TEST_OPTIONS})
target_precompile_headers(kelvaro_test_headers PRIVATE <gtest/gtest.h> <nlohmann/json.hpp>)
if(WIN32)
  target_precompile_headers(kelvaro_test_headers PRIVATE "${PROJECT_SOURCE_DIR}/platform/platform.h")
endif()
# How the test programs and their libraries are compiled: the same for all, as that requires, and several sources at a time, since
# each builds GoogleTest's and the JSON library's templates anew.
function(kelvaro_test_target name)
  set_target_properties(${name} PROPERTIES KELVARO_UNOPTIMISED ON POSITION_INDEPENDENT_CODE OFF
    UNITY_BUILD ${KELVARO_UNITY} UNITY_BUILD_BATCH_SIZE 8)
  target_link_libraries(${name} PRIVATE kelvaro_options kelvaro_nlohmann gtest Threads::Threads)
  target_compile_options(${name} PRIVATE -fpch-preprocess ${KELVARO_TEST_OPTIONS})
  target_precompile_headers(${name} REUSE_FROM kelvaro_test_headers)
endfunction()

function(kelvaro_add_test name)
  cmake_parse_arguments(ARG "X64_ONLY;THREADS" "SHARDS" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} EXCLUDE_FROM_ALL ${ARG_SOURCES})
  kelvaro_test_target(${name})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} gtest_main)
  if(WIN32)
    set_target_properties(${name} PROPERTIES KELVARO_COUNTS_ALLOCATIONS ON)
    # The test programs need no runtime DLLs.
    target_link_options(${name} PRIVATE -static)
  endif()
  if((WIN32 AND ARG_X64_ONLY AND CMAKE_SIZEOF_VOID_P EQUAL 4) OR (KELVARO_THREADS_ONLY AND NOT ARG_THREADS))
    return()
  endif()
  add_dependencies(test_programs ${name})
  if(WIN32)
    file(APPEND "${CMAKE_BINARY_DIR}/tests.txt" "${CMAKE_CURRENT_BINARY_DIR}/${name}.exe\n")
  elseif(ARG_SHARDS)
    foreach(shard RANGE 1 ${ARG_SHARDS})
      math(EXPR index "${shard} - 1")
      add_test(NAME ${name}_${shard} COMMAND ${name} --gtest_brief=1)
      set_tests_properties(${name}_${shard} PROPERTIES TIMEOUT 900 COST 100
        ENVIRONMENT "GTEST_TOTAL_SHARDS=${ARG_SHARDS};GTEST_SHARD_INDEX=${index}")
    endforeach()
  else()
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 900)
  endif()
endfunction()
