// Short texts under a password: the form <IV>hexadecimal</IV><AE>Base64</AE>.
#include <cstdio>
#include <cstring>

#include <kestrune/kestrune.h>
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/light_xml.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/trace.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "keys/hybrid_text.h"

using namespace kestrune;

namespace {

constexpr std::size_t kMostIvCharacters = 64;  // as long as a key's text; only the first 32 count
constexpr std::size_t kBase64SpareBytes = 20;

Result EncipherText(TypV2Utils* utils, const char* text, const AesKey& key, AesIv* iv, char* out,
                    const Trace& trace) {
  char iv_text[2 * kAesBlockBytes + 1];
  utils->Hexadecimalise(iv->data(), iv->size(), iv_text);  // now: ciphering moves the IV on

  SecretCBuffer padded;
  if (!PadText(text, &padded)) return kNoObject;
  aes_context schedule;
  Result rc = aes_setkey_enc(&schedule, key.data(), kAes256KeyBits);
  if (rc == kOk) {
    rc = aes_crypt_cbc(&schedule, AES_ENCRYPT, padded.size(), iv->data(), padded.data(), padded.data());
  }
  trace.Print("chiffrement aes result=%d\n", rc);
  if (rc != kOk) return rc;

  CBuffer base64;
  if (!base64.Allocate(2 * padded.size() + kBase64SpareBytes)) return kNoObject;
  std::size_t length = base64.size();
  // Kept so: without the Base64 text the result is empty, and no failure.
  if (base64_encode(base64.data(), &length, padded.data(), padded.size()) != 0) return kOk;
  out += std::sprintf(out, "<IV>%s</IV><AE>", iv_text);
  std::memcpy(out, base64.data(), length);
  std::strcpy(out + length, "</AE>");
  return kOk;
}

// Kept so: a form without a usable IV text is deciphered with an IV of zeros. It makes noise of the first block.
Result ReadIv(TypV2Utils* utils, const char* form, Noise noise, AesIv* iv) {
  char iv_text[kMostIvCharacters + 1] = {};
  (void)ExtractFirst(utils, form, "IV", iv_text, kMostIvCharacters);
  const std::size_t digits = std::strspn(iv_text, "0123456789ABCDEFabcdef");
  const bool is_whole = digits == 2 * kAesBlockBytes && iv_text[digits] == 0;
  if (noise == Noise::kRefused && !is_whole) return hybrid::kNoText;
  BytesFromHex(utils, iv_text, iv);
  return kOk;
}

Result DecipherForm(TypV2Utils* utils, const char* form, const AesKey& key, Noise noise, char* out) {
  aes_context schedule;
  if (const Result rc = aes_setkey_dec(&schedule, key.data(), kAes256KeyBits); rc != kOk) return rc;
  AesIv iv;
  if (const Result rc = ReadIv(utils, form, noise, &iv); rc != kOk) return rc;

  const std::size_t form_length = std::strlen(form);
  CBuffer base64;
  if (!base64.Allocate(form_length + 1)) return kNoObject;
  if (const Result rc = ExtractFirst(utils, form, "AE", base64.text(), form_length); rc != kOk) {
    return rc;
  }
  const std::size_t base64_length = std::strlen(base64.text());
  SecretCBuffer text;
  if (!text.Allocate(base64_length)) return kNoObject;
  std::size_t length = text.size();
  if (base64_decode(text.data(), &length, base64.data(), base64_length) != 0) return hybrid::kBase64;
  const Result rc = aes_crypt_cbc(&schedule, AES_DECRYPT, length, iv.data(), text.data(), text.data());
  return rc == kOk ? CopyDeciphered({text.data(), length}, noise, out) : rc;
}

}  // namespace

int Api2Aes(const char* text, const char* hexPassword, int mode, char* out, int verbose) {
  return EntryPoint([&]() -> Result {
    if (out == nullptr) return argument::kNoOutput;
    *out = 0;
    if (mode != kEncipher && mode != kDecipher) return kOk;
    if (text == nullptr) return argument::kNoInput;
    if (hexPassword == nullptr) return hybrid::kNoPassword;
    TypV2InstanceCreatorUnix creator;
    Owned<TypV2Utils> utils(creator.newTypV2Utils());
    if (const Result rc = utils.Init(); rc != kOk) return rc;
    AesIv iv;
    DrawBytes(&iv);  // when deciphering too: the sequence of draws of a process is part of the contract
    AesKey key;
    BytesFromHex(utils.get(), hexPassword, &key);
    return mode == kEncipher ? EncipherText(utils.get(), text, key, &iv, out, Trace(verbose != 0))
                             : DecipherForm(utils.get(), text, key, Noise::kPasses, out);
  });
}

int kestrune_decipher_text(const char* form, const char* hexPassword, char* out) {
  return EntryPoint([&]() -> Result {
    if (out == nullptr) return argument::kNoOutput;
    *out = 0;
    if (form == nullptr) return argument::kNoInput;
    if (hexPassword == nullptr) return hybrid::kNoPassword;
    TypV2InstanceCreatorUnix creator;
    Owned<TypV2Utils> utils(creator.newTypV2Utils());
    if (const Result rc = utils.Init(); rc != kOk) return rc;
    AesKey key;
    BytesFromHex(utils.get(), hexPassword, &key);
    return DecipherForm(utils.get(), form, key, Noise::kRefused, out);
  });
}
