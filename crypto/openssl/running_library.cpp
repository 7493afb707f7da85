#include "crypto/running_library.h"

#include <openssl/crypto.h>

#include <array>
#include <cstdio>

namespace kestrune::crypto {

const char* RunningLibrary() {
  constexpr std::size_t kRoom = 64;
  static const auto text = [] {
    std::array<char, kRoom> made{};
    std::snprintf(made.data(), made.size(), "OpenSSL %s", OpenSSL_version(OPENSSL_VERSION_STRING));
    return made;
  }();
  return text.data();
}

}  // namespace kestrune::crypto
