# Debian packages, made by `cpack --config build/packages/CPackConfig.cmake` in the build folder: a component each.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_PACKAGE_NAME kestrune)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VENDOR "kestrune")
set(CPACK_PACKAGE_CONTACT "The kestrune developers <kestrune@messagerie.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# Whoever builds may have any umask.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${kestrune_debian_architecture})
set(CPACK_DEBIAN_PACKAGE_SOURCE kestrune)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# kestrune_package(COMPONENT NAME SECTION MULTI-ARCH [FIELD VALUE]...): a package of what is installed for a component,
# with changelog, copyright and, where there are some, its lintian overrides. FIELD is one of CPACK_DEBIAN_PACKAGE_.
compressed(${PROJECT_SOURCE_DIR}/cmake/debian/changelog ${PROJECT_BINARY_DIR}/changelog.gz)
set(debian_folder ${PROJECT_SOURCE_DIR}/cmake/debian)
set(CPACK_COMPONENTS_ALL "")
macro(kestrune_package component name section multi_arch)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(fields NAME ${name} SECTION "${section}" MULTIARCH ${multi_arch} ${ARGN})
  while(fields)
    list(POP_FRONT fields field value)
    set(CPACK_DEBIAN_${upper}_PACKAGE_${field} "${value}")
  endwhile()
  set(doc_folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name})
  install(FILES ${debian_folder}/copyright ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${doc_folder} COMPONENT ${component})
  if(EXISTS ${debian_folder}/${name}.lintian-overrides)
    install(FILES ${debian_folder}/${name}.lintian-overrides RENAME ${name}
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT ${component})
  endif()
endmacro()

set(libkestrune libkestrune${PROJECT_VERSION_MAJOR})
# Up to 2.2 the package kestrune held the library.
set(formerly "kestrune (<< 2.3.0~)")
kestrune_package(library ${libkestrune} libs same
  SHLIBDEPS ON CONTROL_EXTRA ${debian_folder}/triggers BREAKS ${formerly} REPLACES ${formerly})
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "secure messaging library
Seals, opens, signs and verifies messages of a secure messaging service for
health professionals, and turns opened ones into Internet mail.")

kestrune_package(development libkestrune-dev libdevel same
  DEPENDS "${libkestrune} (= ${PROJECT_VERSION}), ${KESTRUNE_CRYPTO_DEBIAN}" RECOMMENDS kestrune)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "secure messaging library, development files
Headers, static library, manual pages and examples for programs that seal,
open, sign and verify messages with the kestrune library. The pages on the
byte formats are in the package kestrune.")

# What the tool embeds of the cryptographic library. CPack knows no such field; it writes a value as it is.
set(programs_section mail)
if(NOT KESTRUNE_TOOL_SHARED_CRYPTO)
  kestrune_source_package(${KESTRUNE_CRYPTO_ARCHIVE} embedded)
  string(APPEND programs_section "\nBuilt-Using: ${embedded}")
endif()
kestrune_package(tool kestrune "${programs_section}" foreign
  SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})  # CPack has it for all components alone
if(TARGET kestrune_cli)  # which is linked with the shared library, of a package that is not installed here
  set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${libkestrune} (= ${PROJECT_VERSION})")
endif()
set(CPACK_COMPONENT_TOOL_DESCRIPTION "programs of a secure messaging service
kestrunesign signs a short text with a health professional's key and prints
the signature block. Also what the library's users read: the manual, the
pages on the byte formats and on keeping keys.")

include(CPack)
