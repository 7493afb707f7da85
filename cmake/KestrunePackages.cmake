# Debian packages, made by `cpack --config build/packages/CPackConfig.cmake` in the build folder. Debian's own programs
# make them (cmake/debian/make_packages): cpack's generator knows neither Multi-Arch nor Built-Using, and leaves
# dependencies out that it cannot find. What a package is stands in cmake/debian/control.
#
# A new package is a stanza there and a word here, behind the packages whose libraries it needs.
set(kestrune_parts "library:libkestrune2 development:libkestrune-dev tool:kestrune python:python3-kestrune")

# What the tool embeds of the cryptographic library.
set(kestrune_built_using "")
if(NOT KESTRUNE_TOOL_SHARED_CRYPTO)
  kestrune_source_package(${KESTRUNE_CRYPTO_ARCHIVE} kestrune_built_using)
endif()

file(READ cmake/debian/changelog changelog LIMIT 100)
if(NOT changelog MATCHES "^kestrune \\(${PROJECT_VERSION}\\)")
  message(FATAL_ERROR "cmake/debian/changelog does not begin with version ${PROJECT_VERSION}")
endif()

set(CPACK_GENERATOR External)
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${PROJECT_BINARY_DIR}/make_packages.cmake)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/KestrunePackagesHere.cmake)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_PACKAGE_VENDOR "kestrune")
configure_file(cmake/make_packages.cmake.in ${CPACK_EXTERNAL_PACKAGE_SCRIPT} @ONLY)
include(CPack)
