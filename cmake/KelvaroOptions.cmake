# Compiler settings shared by all targets.
#   kelvaro_options         warnings as errors, include root, sanitizers: for every target of ours
#                           (a target whose property KELVARO_UNOPTIMISED is set is built quickly rather than fast; one with
#                           KELVARO_HARDLY_OPTIMISED a third quicker than others, for programs that wait most of their time)
#   kelvaro_system_options  the same without exceptions and RTTI: for the code that runs inside a host
add_library(kelvaro_options INTERFACE)
target_include_directories(kelvaro_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(kelvaro_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror
  $<$<CONFIG:Release>:$<IF:$<BOOL:$<TARGET_PROPERTY:KELVARO_UNOPTIMISED>>,-O0,$<IF:$<BOOL:$<TARGET_PROPERTY:KELVARO_HARDLY_OPTIMISED>>,-O1,-O2>>>)
target_compile_definitions(kelvaro_options INTERFACE
  KELVARO_VERSION="${KELVARO_VERSION}")
if(WIN32)
  target_compile_definitions(kelvaro_options INTERFACE
    UNICODE _UNICODE WINVER=0x0A00 _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN NOMINMAX)
  # Reproducible builds.
  add_link_options(-Wl,--no-insert-timestamp)
endif()

# As Debian hardens its own packages. Fortification needs an optimised build and would hide bytes from the sanitizers.
if(NOT WIN32 AND NOT KELVARO_SANITIZER AND NOT KELVARO_FUZZ)
  target_compile_options(kelvaro_options INTERFACE -fstack-protector-strong -fstack-clash-protection)
  target_compile_definitions(kelvaro_options INTERFACE
    $<$<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:KELVARO_UNOPTIMISED>>>>:_FORTIFY_SOURCE=3>)
  target_link_options(kelvaro_options INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

add_library(kelvaro_system_options INTERFACE)
target_link_libraries(kelvaro_system_options INTERFACE kelvaro_options)
target_compile_options(kelvaro_system_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)

# Windows' own headers are large, and all system code includes them: precompile them.
function(kelvaro_read_windows_once target)
  if(NOT WIN32)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fpch-preprocess)
  if(target STREQUAL kelvaro_support)
    target_precompile_headers(${target} PRIVATE "${PROJECT_SOURCE_DIR}/platform/platform.h")
  else()
    target_precompile_headers(${target} REUSE_FROM kelvaro_support)
  endif()
endfunction()

if(KELVARO_SANITIZER)
  # Global, so that GoogleTest built from source and every object agree. The undefined behaviour checks of unoptimised code
  # compile three times as fast, and nothing is measured in these builds.
  if(KELVARO_SANITIZER MATCHES "undefined")
    set(optimisation -O0)
    add_compile_options(-fno-sanitize-recover=undefined)
  else()
    set(optimisation -O1)
  endif()
  add_compile_options(-fsanitize=${KELVARO_SANITIZER} -fno-omit-frame-pointer -g1 ${optimisation})
  add_link_options(-fsanitize=${KELVARO_SANITIZER})
endif()

# For a target that starts the simulator: this build's, unless another one is given. On Windows it is already running.
function(kelvaro_starts_vaultsim target)
  set(simulator "${KELVARO_VAULTSIM}")
  if(NOT simulator AND NOT WIN32)
    set(simulator "$<TARGET_FILE:vaultsim>")
    add_dependencies(${target} vaultsim)
  endif()
  target_compile_definitions(${target} PRIVATE KELVARO_VAULTSIM_PATH="${simulator}")
endfunction()
