# The headers as those see them who use the library: a copy in include/kestrune/ of the build folder, which is also what
# is installed. In the tree a header is "core/utils.h", from the root; in the copy, everywhere, <kestrune/core/utils.h>,
# so that nobody's own core/utils.h is taken for ours.
set(kestrune_headers
  base/bounded_text.h base/buffer.h base/export.h base/memory.h base/wipe.h
  blocks/block_cell.h blocks/fork.h blocks/v1_structure.h
  core/file_ref.h core/instance_creator.h core/key_header.h core/limits.h core/object.h core/owned.h core/result.h
  core/result_codes.inc core/string_helpers.h core/utils.h
  crypto/classic.h
  envelope/crypto_interface.h
  keys/aes.h keys/install_cipher.h keys/kestrune_key.h keys/master_key.h keys/message_cipher.h
  mail/charset.h mail/mail_text.h
  sign/key_utils.h sign/signature.h sign/signature_verify.h)

set(kestrune_include_folder ${PROJECT_BINARY_DIR}/include)
set(c_header kestrune/kestrune.h)
add_custom_command(OUTPUT ${kestrune_include_folder}/${c_header}
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/include/${c_header} ${kestrune_include_folder}/${c_header}
  DEPENDS ${PROJECT_SOURCE_DIR}/include/${c_header} VERBATIM)
set(copies ${kestrune_include_folder}/${c_header})

set(rewriting ${PROJECT_SOURCE_DIR}/cmake/installed_header.sed)
foreach(header IN LISTS kestrune_headers)
  set(copy ${kestrune_include_folder}/kestrune/${header})
  get_filename_component(folder ${copy} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${copy} COMMAND sed -E -f ${rewriting} ${PROJECT_SOURCE_DIR}/${header} > ${copy}
    DEPENDS ${PROJECT_SOURCE_DIR}/${header} ${rewriting} VERBATIM)
  list(APPEND copies ${copy})
endforeach()
add_custom_target(kestrune_headers ALL DEPENDS ${copies})

function(kestrune_give_headers target)
  add_dependencies(${target} kestrune_headers)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${kestrune_include_folder}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endfunction()
