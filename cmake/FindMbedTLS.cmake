# Finds the cryptographic parts of mbed TLS 2.28 as the distribution packages them (it ships no CMake
# package and no .pc file). Targets: MbedTLS::crypto (shared), MbedTLS::crypto_static (archives).
find_path(MbedTLS_INCLUDE_DIR mbedtls/version.h)
find_library(MbedTLS_CRYPTO_LIBRARY mbedcrypto)
find_library(MbedTLS_X509_LIBRARY mbedx509)
find_library(MbedTLS_CRYPTO_ARCHIVE libmbedcrypto.a)
find_library(MbedTLS_X509_ARCHIVE libmbedx509.a)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MbedTLS REQUIRED_VARS
  MbedTLS_CRYPTO_LIBRARY MbedTLS_X509_LIBRARY MbedTLS_CRYPTO_ARCHIVE MbedTLS_X509_ARCHIVE MbedTLS_INCLUDE_DIR)

if(MbedTLS_FOUND AND NOT TARGET MbedTLS::crypto)
  add_library(MbedTLS::crypto INTERFACE IMPORTED)
  set_target_properties(MbedTLS::crypto PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${MbedTLS_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "${MbedTLS_X509_LIBRARY};${MbedTLS_CRYPTO_LIBRARY}")
  add_library(MbedTLS::crypto_static INTERFACE IMPORTED)
  set_target_properties(MbedTLS::crypto_static PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${MbedTLS_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "${MbedTLS_X509_ARCHIVE};${MbedTLS_CRYPTO_ARCHIVE}")
endif()
