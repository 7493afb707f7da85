// A text for the holder of a certificate that arrived from somewhere. The keys are those of the tests; a form
// names one as "rsa640.pem".
//
// Nobody finds an RSA block, so an input that begins with a zero byte holds behind it what the block is to
// carry (one byte of length, then the bytes) and the text of the <AED> element; the block is made here.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "crypto/classic.h"
#include "fuzz/expect.h"
#include "fuzz/short_key.h"

using namespace kestrune::testing;

namespace {

ShortKeyFolder& Folder() {
  static ShortKeyFolder folder;
  return folder;
}

std::string FormAround(const std::uint8_t* data, std::size_t size) {
  rsa_context& rsa = Folder().key.rsa;
  const std::size_t key_length =
      size == 0 ? 0 : std::min({std::size_t{data[0]}, size - 1, rsa.len() - kPkcs1PaddingBytes});
  const std::uint8_t* const key = size == 0 ? data : data + 1;
  std::vector<unsigned char> block(rsa.len());
  Expect(rsa_pkcs1_encrypt(&rsa, RSA_PUBLIC, key_length, key, block.data()) == 0);
  std::array<unsigned char, 200> base64;
  std::size_t length = base64.size();
  Expect(base64_encode(base64.data(), &length, block.data(), block.size()) == 0);
  return "<N>rsa640.pem</N><S>" + std::string(base64.begin(), base64.begin() + static_cast<long>(length)) +
         "</S><AED>" + std::string(key + key_length, data + size) + "</AED>";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const bool made_here = size > 0 && data[0] == 0;
  const std::string form =
      made_here ? FormAround(data + 1, size - 1) : std::string(reinterpret_cast<const char*>(data), size);
  constexpr std::size_t kMostTextBytes = 3745;
  std::vector<char> text(kMostTextBytes);
  Expect(Api2DeAesPriv(form.c_str(), "", Folder().path().c_str(), text.data(), 0) == 0 || text[0] == 0);
  return 0;
}
