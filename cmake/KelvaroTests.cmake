# GoogleTest is built from Debian's source package, so that it carries the sanitizers of this build
# and exists for the Windows compilers too.
set(KELVARO_GTEST_SOURCE "/usr/src/googletest" CACHE PATH "GoogleTest's source tree")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory("${KELVARO_GTEST_SOURCE}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)

# kelvaro_add_test(NAME SOURCES file... LIBS target...): one GoogleTest program, a single test for CTest, so that all
# its cases share one simulator.
function(kelvaro_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE kelvaro_options ${ARG_LIBS} gtest_main Threads::Threads)
  if(WIN32)
    # No runtime DLL beside the test programs.
    target_link_options(${name} PRIVATE -static)
  else()
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 900)
  endif()
endfunction()
