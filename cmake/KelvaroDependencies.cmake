# Libraries from Debian. For Windows, json-c is cross-built by tools/build-json-c.sh and found under KELVARO_JSONC_ROOT.
find_package(Threads REQUIRED)
if(WIN32)
  if(NOT KELVARO_JSONC_ROOT)
    message(FATAL_ERROR "KELVARO_JSONC_ROOT must name the cross-built json-c (see tools/build-json-c.sh)")
  endif()
  # Test programs make the system's own allocations fail, but not json-c's: they link a copy that calls the C library
  # directly, not the wrappers (tests/common/alloc_fault.cpp).
  set(unwrapped "${CMAKE_BINARY_DIR}/libjson-c-unwrapped.a")
  set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${KELVARO_JSONC_ROOT}/lib/libjson-c.a")
  execute_process(COMMAND "${CMAKE_OBJCOPY}" --redefine-syms=${PROJECT_SOURCE_DIR}/cmake/unwrapped-${CMAKE_SYSTEM_PROCESSOR}.txt
    "${KELVARO_JSONC_ROOT}/lib/libjson-c.a" "${unwrapped}" COMMAND_ERROR_IS_FATAL ANY)
  add_library(kelvaro_jsonc INTERFACE IMPORTED GLOBAL)
  target_include_directories(kelvaro_jsonc SYSTEM INTERFACE "${KELVARO_JSONC_ROOT}/include")
  target_link_libraries(kelvaro_jsonc INTERFACE
    "$<IF:$<BOOL:$<TARGET_PROPERTY:KELVARO_COUNTS_ALLOCATIONS>>,${unwrapped},${KELVARO_JSONC_ROOT}/lib/libjson-c.a>")
else()
  find_package(OpenSSL REQUIRED)
  find_package(CURL REQUIRED)
  find_path(KELVARO_JSONC_INCLUDE json-c/json.h REQUIRED)
  find_library(KELVARO_JSONC_LIBRARY json-c REQUIRED)
  add_library(kelvaro_jsonc UNKNOWN IMPORTED GLOBAL)
  set_target_properties(kelvaro_jsonc PROPERTIES
    IMPORTED_LOCATION "${KELVARO_JSONC_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${KELVARO_JSONC_INCLUDE}")
endif()

# Header-only libraries from Debian. For the Windows compilers each gets a folder with only its headers, so that nothing
# else from /usr/include leaks into a cross build.
function(kelvaro_header_library target folder)
  add_library(${target} INTERFACE)
  if(WIN32)
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/headers/${target}")
    file(CREATE_LINK "/usr/include/${folder}" "${CMAKE_BINARY_DIR}/headers/${target}/${folder}" SYMBOLIC)
    target_include_directories(${target} SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/headers/${target}")
  endif()
endfunction()
kelvaro_header_library(kelvaro_cli11 CLI)
kelvaro_header_library(kelvaro_nlohmann nlohmann)
