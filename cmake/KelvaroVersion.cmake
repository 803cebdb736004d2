# Resources that Windows reads from a program or module.

# kelvaro_version_resource(TARGET DESCRIPTION [EXECUTION_LEVEL]): the version resource, with the number of the file VERSION.
# EXECUTION_LEVEL: a program's, asInvoker or requireAdministrator. It goes into the program's manifest; without one,
# Windows silently redirects a 32-bit program's writes to places that ordinary users may not write to.
function(kelvaro_version_resource target description)
  get_target_property(type ${target} TYPE)
  set(manifest "")
  if(type STREQUAL "EXECUTABLE")
    set(filetype VFT_APP)
    set(filename ${target}.exe)
    set(level ${ARGV2})
    configure_file("${PROJECT_SOURCE_DIR}/cmake/program.manifest.in" "${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest" @ONLY)
    set(manifest "CREATEPROCESS_MANIFEST_RESOURCE_ID RT_MANIFEST \"${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest\"")
  else()
    set(filetype VFT_DLL)
    set(filename ${target}.dll)
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc" @ONLY)
  target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
endfunction()

# kelvaro_event_messages(TARGET FILE.mc): the texts that the event viewer looks up by an event's number.
function(kelvaro_event_messages target messages)
  string(REPLACE windres windmc compiler "${CMAKE_RC_COMPILER}")
  get_filename_component(name ${messages} NAME_WE)
  set(made "${CMAKE_CURRENT_BINARY_DIR}/messages")
  file(MAKE_DIRECTORY "${made}")
  add_custom_command(OUTPUT "${made}/${name}.rc" "${made}/${name}.bin"
    COMMAND "${compiler}" -a -h "${made}" -r "${made}" "${CMAKE_CURRENT_SOURCE_DIR}/${messages}"
    DEPENDS ${messages})
  set_source_files_properties("${made}/${name}.rc" PROPERTIES
    OBJECT_DEPENDS "${made}/${name}.bin" INCLUDE_DIRECTORIES "${made}")
  target_sources(${target} PRIVATE "${made}/${name}.rc")
endfunction()
