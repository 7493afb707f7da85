# Finds the cryptographic part of mbed TLS, 2.28 or 3.6, as the distribution packages it (2.28 ships no CMake package and
# no .pc file). Target: MbedTLS::crypto. MbedTLS_VERSION is its version, MbedTLS_CRYPTO_ARCHIVE the archive, if there is one.
find_path(MbedTLS_INCLUDE_DIR mbedtls/version.h)
find_library(MbedTLS_CRYPTO_LIBRARY mbedcrypto)
find_library(MbedTLS_CRYPTO_ARCHIVE libmbedcrypto.a)

# Where the version stands has changed.
foreach(header IN ITEMS build_info.h version.h)
  set(header ${MbedTLS_INCLUDE_DIR}/mbedtls/${header})
  if(EXISTS ${header})
    file(STRINGS ${header} version_line REGEX "define +MBEDTLS_VERSION_STRING +\"")
    string(REGEX REPLACE ".*\"(.*)\".*" "\\1" MbedTLS_VERSION "${version_line}")
    break()
  endif()
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MbedTLS
  REQUIRED_VARS MbedTLS_CRYPTO_LIBRARY MbedTLS_INCLUDE_DIR VERSION_VAR MbedTLS_VERSION)

if(MbedTLS_FOUND AND NOT TARGET MbedTLS::crypto)
  add_library(MbedTLS::crypto INTERFACE IMPORTED)
  set_target_properties(MbedTLS::crypto PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${MbedTLS_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "${MbedTLS_CRYPTO_LIBRARY}")
endif()
