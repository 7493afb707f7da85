#include "crypto/running_library.h"

#include <mbedtls/version.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace kestrune::crypto {

const char* RunningLibrary() {
  constexpr std::string_view kName = "mbed TLS ";
  constexpr std::size_t kVersionRoom = 9;  // what the library asks for
  static const auto text = [=] {
    std::array<char, kName.size() + kVersionRoom> made{};
    mbedtls_version_get_string(std::copy(kName.begin(), kName.end(), made.begin()));
    return made;
  }();
  return text.data();
}

}  // namespace kestrune::crypto
