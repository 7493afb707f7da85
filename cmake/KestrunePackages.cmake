# Debian packages: kestrune (tool and shared library) and libkestrune-dev. The library has no other user in
# the distribution than the tool and what is built with the second package, so it shares the tool's package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrune)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VENDOR "kestrune")
set(CPACK_PACKAGE_CONTACT "The kestrune developers <kestrune@messagerie.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_COMPONENTS_ALL tool development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kestrune)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION mail)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "signing tool of a secure messaging service
kestrunesign signs a short text with a health professional's key and prints
the signature block. The shared library seals, opens, signs and verifies
messages and turns opened ones into Internet mail.")
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkestrune-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "kestrune (= ${PROJECT_VERSION}), ${KESTRUNE_CRYPTO_DEBIAN}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "secure messaging library, development files
Headers, static library, manual pages and examples for programs that seal,
open, sign and verify messages with the kestrune library.")

include(CPack)
