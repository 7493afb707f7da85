// A signature block that arrived from somewhere: through the entry point and the operations of the class. The
// certificates are those of the tests; a block names one of them as "rsa640" or "rsa2048".
//
// Nobody finds a signature whose padding is nearly right, so an input that begins with a zero byte is the
// padded block instead, and is signed here.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include <kestrune/kestrune.h>
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"
#include "fuzz/expect.h"
#include "fuzz/short_key.h"
#include "sign/signature_verify.h"

namespace {

using namespace kestrune::testing;

ShortKeyFolder& Folder() {
  static ShortKeyFolder folder;
  return folder;
}

void ReadText(const std::string& block) {
  using Verifier = TypApiV2SignatureVerify;
  const std::string& folder = Folder().path();

  std::array<char, 1100> answer;
  const int code = Api2ExtractFromSignature(block.c_str(), folder.c_str(), answer.data(), 0);
  Expect(code <= 0);
  Expect(std::string(answer.data()).starts_with("<ERR>" + std::to_string(code) + "</ERR>"));

  TypV2InstanceCreatorUnix creator;
  kestrune::Owned<Verifier> verifier(creator.newTypApiV2SignatureVerify());
  Expect(verifier.Init(&creator, folder.c_str()) == 0);
  std::array<char, Verifier::kNameOutputBytes> name;
  std::array<unsigned char, Verifier::kDataOutputBytes> text;
  unsigned long long length = 0;
  const int recovered =
      verifier->VerifyXMLSignBlockAuthentificationData(block.c_str(), name.data(), text.data(), &length);
  Expect(recovered == 0 ? length < text.size() : length == 0);
  Expect(recovered == code || (recovered == 0 && code != 0));
  // No block in the corpus signs these data, and nobody finds one.
  Expect(verifier->VerifySignAndIntegrityDataFromXMLSignBlock(block.c_str(), text.data(), 0, name.data()) !=
         0);
}

// What is taken out of a padded block, padded as it should be, must be that block.
void DecodePadded(const std::uint8_t* data, std::size_t size) {
  rsa_context& key = Folder().key.rsa;
  Bytes padded(data, data + std::min(size, key.len()));
  padded.resize(key.len());
  Bytes signature(key.len());
  Expect(rsa_private(&key, padded.data(), signature.data()) == 0);
  Bytes text(key.len() - kPkcs1PaddingBytes);
  std::size_t length = 0;
  const int rc = rsa_pkcs1_decodesignature(&key, RSA_PUBLIC, &length, text.data(), text.size(),
                                           signature.data(), signature.size());
  Expect(rc == 0 || ((rc == ERR_RSA_INVALID_PADDING || rc == ERR_RSA_VERIFY_FAILED) && length == 0));
  if (rc != 0) return;
  Bytes again(key.len(), 0xff);
  again[0] = 0;
  again[1] = 1;
  again[key.len() - length - 1] = 0;
  std::copy_n(text.begin(), length, again.end() - static_cast<std::ptrdiff_t>(length));
  Expect(again == padded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 0 && data[0] == 0) {
    DecodePadded(data, size);
  } else {
    ReadText(std::string(reinterpret_cast<const char*>(data), size));
  }
  return 0;
}
