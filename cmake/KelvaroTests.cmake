# GoogleTest is built from Debian's source package, so that it carries the sanitizers of this build
# and exists for the Windows compilers too.
set(KELVARO_GTEST_SOURCE "/usr/src/googletest" CACHE PATH "GoogleTest's source tree")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory("${KELVARO_GTEST_SOURCE}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)

# kelvaro_add_test(NAME [X64_ONLY] SOURCES file... LIBS target...): one GoogleTest program, a single test for CTest, so that
# all its cases share one simulator. X64_ONLY: not built for 32-bit Windows.
if(WIN32)
  # test-windows.sh runs what stands in this file.
  file(WRITE "${CMAKE_BINARY_DIR}/tests.txt" "")
endif()
# Nothing is measured in the test programs, and optimising them is most of the build's time.
if(NOT KELVARO_SANITIZER)
  target_compile_options(gtest PRIVATE -O0)
endif()
function(kelvaro_add_test name)
  cmake_parse_arguments(ARG "X64_ONLY" "" "SOURCES;LIBS" ${ARGN})
  if(WIN32 AND ARG_X64_ONLY AND CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(exclude EXCLUDE_FROM_ALL)
  endif()
  add_executable(${name} ${exclude} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE kelvaro_options ${ARG_LIBS} gtest_main Threads::Threads)
  set_target_properties(${name} PROPERTIES KELVARO_UNOPTIMISED ON)
  if(WIN32)
    set_target_properties(${name} PROPERTIES KELVARO_COUNTS_ALLOCATIONS ON)
    # No runtime DLL beside the test programs.
    target_link_options(${name} PRIVATE -static)
    if(NOT exclude)
      file(APPEND "${CMAKE_BINARY_DIR}/tests.txt" "${CMAKE_CURRENT_BINARY_DIR}/${name}.exe\n")
    endif()
  else()
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 900)
  endif()
endfunction()
