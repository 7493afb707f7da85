# What `cmake --install` and `cpack` put in place, and where. Any prefix and DESTDIR will do: nothing that is
# installed names a path of the build or of the installation.
include(CMakePackageConfigHelpers)

set(installed_headers
  base/bounded_text.h base/buffer.h base/export.h base/memory.h base/wipe.h
  blocks/block_cell.h blocks/fork.h blocks/v1_structure.h
  core/file_ref.h core/instance_creator.h core/key_header.h core/limits.h core/object.h core/owned.h core/result.h
  core/string_helpers.h core/utils.h
  crypto/classic.h
  envelope/crypto_interface.h
  keys/aes.h keys/install_cipher.h keys/kestrune_key.h keys/master_key.h keys/message_cipher.h
  mail/charset.h mail/mail_text.h
  sign/key_utils.h sign/signature.h sign/signature_verify.h)

set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/kestrune)
# <kestrune/kestrune.h> is found in the first, what the headers themselves include in the second.
set(header_folders ${CMAKE_INSTALL_INCLUDEDIR} ${header_folder})
set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kestrune)
set(tool_part COMPONENT tool)
set(dev_part COMPONENT development)

# --- Programs, libraries, headers ---------------------------------------------------------------------
install(TARGETS kestrunesign RUNTIME ${tool_part})
install(TARGETS kestrune EXPORT kestruneTargets
  LIBRARY ${tool_part} NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${header_folders})
install(TARGETS kestrune_static EXPORT kestruneTargets
  ARCHIVE ${dev_part} INCLUDES DESTINATION ${header_folders})

foreach(header IN LISTS installed_headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${header_folder}/${folder} ${dev_part})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/include/kestrune/kestrune.h DESTINATION ${header_folder} ${dev_part})

# --- For those who build against it -------------------------------------------------------------------
set(strong_random 0)
if(KESTRUNE_STRONG_RANDOM)
  set(strong_random 1)
endif()
install(EXPORT kestruneTargets NAMESPACE kestrune:: DESTINATION ${cmake_folder} ${dev_part})
configure_package_config_file(cmake/kestruneConfig.cmake.in ${PROJECT_BINARY_DIR}/kestruneConfig.cmake
  INSTALL_DESTINATION ${cmake_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kestruneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/kestruneConfig.cmake ${PROJECT_BINARY_DIR}/kestruneConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/FindMbedTLS.cmake
  DESTINATION ${cmake_folder} ${dev_part})

# The way back from the .pc file to the prefix, so that the tree can be moved.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(cmake/kestrune.pc.in ${PROJECT_BINARY_DIR}/kestrune.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kestrune.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig ${dev_part})

# --- Documents ----------------------------------------------------------------------------------------
# Manual pages are installed compressed, without name and time, so that two builds give the same bytes.
function(compressed source target)
  add_custom_command(OUTPUT ${target} COMMAND gzip -9nc ${source} > ${target} DEPENDS ${source} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY kestrune_compressed ${target})
endfunction()

foreach(language IN ITEMS en fr)
  set(man_folder ${CMAKE_INSTALL_MANDIR})
  if(NOT language STREQUAL en)
    string(APPEND man_folder /${language})
  endif()
  foreach(page IN ITEMS kestrunesign.1 kestrune.3 kestrune.5 kestrune-codes.7)
    string(REGEX REPLACE ".*\\." "" section ${page})
    set(part ${dev_part})
    if(page STREQUAL kestrunesign.1 OR page STREQUAL kestrune-codes.7)
      set(part ${tool_part})
    endif()
    set(target ${PROJECT_BINARY_DIR}/man-${language}-${page}.gz)
    compressed(${PROJECT_SOURCE_DIR}/man/${language}/${page} ${target})
    install(FILES ${target} RENAME ${page}.gz DESTINATION ${man_folder}/man${section} ${part})
  endforeach()
endforeach()

set(tool_doc ${CMAKE_INSTALL_DOCDIR})
set(dev_doc ${CMAKE_INSTALL_DATAROOTDIR}/doc/libkestrune-dev)
compressed(${PROJECT_SOURCE_DIR}/cmake/debian/changelog ${PROJECT_BINARY_DIR}/changelog.gz)
foreach(part IN ITEMS tool dev)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${${part}_doc} ${${part}_part})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${${part}_doc} ${${part}_part})
endforeach()
get_property(compressed_files GLOBAL PROPERTY kestrune_compressed)
add_custom_target(compressed_documents ALL DEPENDS ${compressed_files})

install(FILES README.md README.fr.md DESTINATION ${tool_doc} ${tool_part})
install(DIRECTORY docs DESTINATION ${dev_doc} ${dev_part} FILES_MATCHING PATTERN *.md)
install(DIRECTORY examples DESTINATION ${dev_doc} ${dev_part}
  FILES_MATCHING PATTERN *.c PATTERN *.cpp PATTERN *.h PATTERN note.txt)
install(FILES completions/kestrunesign.bash RENAME kestrunesign
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions ${tool_part})
install(FILES completions/_kestrunesign DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions ${tool_part})
install(FILES completions/kestrunesign.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d ${tool_part})

include(KestrunePackages)
