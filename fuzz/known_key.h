// Keys for what is done with them: personal ones without what takes longest in opening them.
#ifndef KESTRUNE_FUZZ_KNOWN_KEY_H
#define KESTRUNE_FUZZ_KNOWN_KEY_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "core/result.h"
#include "examples/key_files.h"
#include "fuzz/input.h"
#include "keys/kestrune_key.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

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

// A position or a length: any number, a small one, or one near the end of a chunk, where faults are.
inline std::uint64_t ValueOf(std::uint64_t operation, Input& input) {
  if (operation < 128) return input.Number();
  if (operation < 192) return input.Number(2);
  const std::uint64_t chunks = input.Number(1) % 4;
  return chunks * kPadChunk + static_cast<std::uint64_t>(static_cast<std::int8_t>(input.Number(1)));
}

}  // namespace kestrune::testing

#endif
