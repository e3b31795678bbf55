# Codec plug-ins: shared modules named "<name>.cdc", written beside libkelpu.so (where
# the codec registry looks for them) and installed beside it.
function(kelp_codec_plugin target name)
  set_target_properties(${target} PROPERTIES
    PREFIX "" SUFFIX ".cdc" OUTPUT_NAME ${name}
    LIBRARY_OUTPUT_DIRECTORY "$<TARGET_FILE_DIR:kelpu>"
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  kelp_codec_plugin_flags(${target})
  install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# What every plug-in target gets, ours and the tests' alike: the plug-in contract
# headers, warnings, and symbols that really go away when the module is unloaded.
function(kelp_codec_plugin_flags target)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/include
    ${PROJECT_SOURCE_DIR}/plugins)
  target_compile_options(${target} PRIVATE ${KELP_WARNINGS})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fno-gnu-unique)
  endif()
  if(NOT KELP_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
