# What `cmake --install` and `cpack` put in place, and where. Any prefix and DESTDIR will do: nothing that is
# installed names a path of the build or of the installation.
include(CMakePackageConfigHelpers)

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kestrune)
set(library_part COMPONENT library)
set(tool_part COMPONENT tool)
set(dev_part COMPONENT development)

# --- Libraries, headers ------------------------------------------------------------------------------
if(kestrune_shared)
  install(TARGETS kestrune EXPORT kestruneTargets LIBRARY ${library_part} NAMELINK_COMPONENT development)
endif()
if(kestrune_archive)
  install(TARGETS kestrune_static EXPORT kestruneTargets ARCHIVE ${dev_part})
endif()
foreach(header IN LISTS kestrune_headers ITEMS kestrune.h)
  get_filename_component(folder kestrune/${header} DIRECTORY)
  install(FILES ${kestrune_include_folder}/kestrune/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} ${dev_part})
endforeach()

# --- For those who build against it -------------------------------------------------------------------
set(strong_random 0)
if(KESTRUNE_STRONG_RANDOM)
  set(strong_random 1)
endif()
# What the archive needs besides is told by `pkg-config --static` alone, unless there is nothing else.
set(cxx_libraries ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(FILTER cxx_libraries INCLUDE REGEX "^(stdc\\+\\+|c\\+\\+|c\\+\\+abi|m)$")
list(TRANSFORM cxx_libraries PREPEND -l OUTPUT_VARIABLE pc_private)
list(JOIN pc_private " " pc_private)
set(pc_libs "Libs: -L\${libdir} -lkestrune\nLibs.private: ${KESTRUNE_CRYPTO_LINK} ${pc_private}")
if(NOT kestrune_shared)
  string(REPLACE "\nLibs.private:" "" pc_libs "${pc_libs}")
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

# kestrune_install_pages(PART PAGE...): manual pages, in every language in which there is one.
function(kestrune_install_pages part)
  foreach(language IN ITEMS en fr)
    set(man_folder ${CMAKE_INSTALL_MANDIR})
    if(NOT language STREQUAL en)
      string(APPEND man_folder /${language})
    endif()
    foreach(page IN LISTS ARGN)
      get_filename_component(section ${page} LAST_EXT)
      string(REPLACE . man section ${section})
      set(source ${PROJECT_SOURCE_DIR}/man/${language}/${page})
      set(target ${PROJECT_BINARY_DIR}/man-${language}-${page}.gz)
      compressed(${source} ${target})
      install(FILES ${target} RENAME ${page}.gz DESTINATION ${man_folder}/${section} COMPONENT ${part})
    endforeach()
  endforeach()
endfunction()

# kestrune_install_program(TARGET NAME): a program of the package kestrune with its page NAME.1 and its completions.
function(kestrune_install_program target name)
  install(TARGETS ${target} RUNTIME ${tool_part})
  kestrune_install_pages(tool ${name}.1)
  set(completions ${PROJECT_SOURCE_DIR}/completions)
  install(FILES ${completions}/${name}.bash RENAME ${name}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions ${tool_part})
  install(FILES ${completions}/_${name} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions ${tool_part})
  install(FILES ${completions}/${name}.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d ${tool_part})
endfunction()

kestrune_install_program(kestrunesign kestrunesign)
if(TARGET kestrune_cli)
  kestrune_install_program(kestrune_cli kestrune)
endif()
kestrune_install_pages(tool kestrune-codes.7)
kestrune_install_pages(development kestrune.3 kestrune.5)

# The README's links lead where they did: the pages lie beside it.
install(FILES README.md README.fr.md DESTINATION ${CMAKE_INSTALL_DOCDIR} ${tool_part})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} ${tool_part} FILES_MATCHING PATTERN *.md)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libkestrune-dev ${dev_part}
  FILES_MATCHING PATTERN *.c PATTERN *.cpp PATTERN *.h PATTERN note.txt)

if(KESTRUNE_DEBIAN_PACKAGES)
  include(KestrunePython)
  include(KestrunePackages)
endif()
get_property(compressed_files GLOBAL PROPERTY kestrune_compressed)
add_custom_target(compressed_documents ALL DEPENDS ${compressed_files})
