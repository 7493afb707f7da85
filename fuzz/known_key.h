// Keys for what is done with them: spoilt ones, and personal ones without what takes longest in opening them.
#ifndef KESTRUNE_FUZZ_KNOWN_KEY_H
#define KESTRUNE_FUZZ_KNOWN_KEY_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>

#include "core/result.h"
#include "examples/key_files.h"
#include "fuzz/input.h"
#include "keys/kestrune_key.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

// Cuts a key file and puts any numbers into its header.
inline void Spoil(Bytes& file, Input& input, std::initializer_list<std::size_t> numbers_at) {
  file.resize(file.size() - std::min<std::size_t>(input.Number(2), file.size()));
  for (const std::size_t at : numbers_at) {
    const std::uint64_t number = input.Number();
    if (file.size() >= kKeyHeaderBytes) SetNumberAt(file, at, number);
  }
}

// Takes every check digest for right. Its files hold their IV area in clear.
struct KnownKey : TypV2KestruneKey {
  int DecryptageIV() override { return kOk; }
};

// Deciphers a key file's IV area in place, which KnownKey then finds there.
inline void OpenIvArea(Bytes& file, const std::string& hex_password) {
  const Bytes key = FromHex(hex_password);
  const std::array<unsigned char, 16> no_iv{};
  const auto area = IvAreaBytes(NumberAt(file, kFirstPadBytesAt), NumberAt(file, kSecondPadBytesAt));
  AesCbc(false, key.data(), no_iv.data(), file.data() + kKeyHeaderBytes, static_cast<std::size_t>(area));
}

}  // namespace kestrune::testing

#endif
