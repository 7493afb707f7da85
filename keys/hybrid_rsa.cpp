// Short texts for the holder of a certificate: the form
// <AESPUB><N>name</N><S>key</S><AED>text</AED></AESPUB>.
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <kestrune/kestrune.h>
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/light_xml.h"
#include "core/owned.h"
#include "core/password.h"
#include "core/result.h"
#include "core/trace.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "keys/hybrid_text.h"

using namespace kestrune;

namespace {

constexpr std::size_t kBase64BufferBytes = 5000;  // of the writer, terminator counted
constexpr std::size_t kMostBase64Characters = 5000;
constexpr std::size_t kMostNameCharacters = 100;
constexpr std::size_t kLeastNameCharacters = 4;
constexpr std::size_t kSuffixCharacters = 3;  // "pem", which becomes "key"
constexpr std::size_t kMostRsaResultBytes = 2018;

// A block of the RSA key's length, whatever key that is.
struct RsaBlock {
  std::array<unsigned char, kRsaMostBytes> bytes{};
  std::size_t length = 0;
};

// ---- Writing ---------------------------------------------------------------------------------------

// Enciphers in place, with an IV of zeros: no two texts have the same key.
Result EncipherUnder(const AesKey& key, SecretCBuffer* padded) {
  AesIv iv;
  aes_context schedule;
  if (const Result rc = aes_setkey_enc(&schedule, key.data(), kAes256KeyBits); rc != kOk) return rc;
  return aes_crypt_cbc(&schedule, AES_ENCRYPT, padded->size(), iv.data(), padded->data(), padded->data());
}

Result EncipherKeyFor(const char* certificate_path, const AesKey& key, RsaBlock* block, const Trace& trace) {
  trace.Print("pem path=%s\n", certificate_path);
  x509_cert certificate;
  int rc = x509parse_crtfile(&certificate, certificate_path);
  trace.Print("x509parse_crtfile err result=%d\n", rc);
  if (rc != 0) return hybrid::kEncrypt;
  block->length = certificate.rsa.len();
  rc = rsa_pkcs1_encrypt(&certificate.rsa, RSA_PUBLIC, key.size(), key.data(), block->bytes.data());
  trace.Print("rsa_pkcs1_encrypt err result=%d\n", rc);
  return rc == 0 ? kOk : hybrid::kEncrypt;
}

Result WriteForm(const char* name, const RsaBlock& block, const SecretCBuffer& ciphertext, char* out,
                 const Trace& trace) {
  std::array<char, kBase64BufferBytes> base64{};
  auto* const buffer = reinterpret_cast<unsigned char*>(base64.data());
  std::size_t length = base64.size();
  if (base64_encode(buffer, &length, block.bytes.data(), block.length) != 0) return hybrid::kEncrypt;
  trace.Print("base64 outputlen =%d\n", static_cast<int>(length));
  trace.Print("base64 outputstrlen =%d\n", static_cast<int>(std::strlen(base64.data())));
  out += std::sprintf(out, "<AESPUB><N>%s</N><S>%s</S><AED>", name, base64.data());

  base64[0] = 0;
  length = base64.size();
  // Kept so: what does not fit into the buffer leaves the element empty, and is no failure.
  (void)base64_encode(buffer, &length, ciphertext.data(), ciphertext.size());
  std::sprintf(out, "%s</AED></AESPUB>", base64.data());
  return kOk;
}

// ---- Reading ---------------------------------------------------------------------------------------

// The bytes of one Base64 element. Text that is not Base64 gives no bytes (kept so: the next step tells).
struct DecodedElement {
  std::array<char, kMostBase64Characters + 1> base64{};
  SecretArray<kMostBase64Characters> bytes;
  std::size_t length = 0;
  int status = 0;

  Result Extract(TypV2Utils* utils, const char* form, const char* tag) {
    return ExtractFirst(utils, form, tag, base64.data(), kMostBase64Characters);
  }
  void Decode() {
    length = bytes.size();
    status = base64_decode(bytes.data(), &length, reinterpret_cast<unsigned char*>(base64.data()),
                           std::strlen(base64.data()));
    if (status != 0) length = 0;
  }
};

struct Form {
  std::array<char, kMostNameCharacters + 1> name{};
  DecodedElement key;   // under the certificate's RSA key
  DecodedElement text;  // under the AES key
};

Result ReadForm(TypV2Utils* utils, const char* text, Form* form, const Trace& trace) {
  Result rc = ExtractFirst(utils, text, "N", form->name.data(), kMostNameCharacters);
  trace.Print("clef pub utilisee : %s\n", form->name.data());
  if (rc != kOk) return rc;

  if (rc = form->key.Extract(utils, text, "S"); rc != kOk) return rc;
  trace.Print("block rsa : \n%s\n\n", form->key.base64.data());
  form->key.Decode();
  trace.Print("decode base64 : %d, len=%d\n", form->key.status, static_cast<int>(form->key.length));

  if (rc = form->text.Extract(utils, text, "AED"); rc != kOk) return rc;
  trace.Print("Data AES : \n%s\n\n", form->text.base64.data());
  form->text.Decode();
  trace.Print("decode base64 aed : %d, len=%d\n", form->text.status, static_cast<int>(form->text.length));
  return kOk;
}

// Tries the pass phrase as given, then the one with which the service's key files are protected.
int ReadKeyFile(rsa_context* key, const char* path, const char* password) {
  const int rc = x509parse_keyfile(key, path, password);
  if (rc == 0 || password == nullptr) return rc;
  SecretCBuffer substituted;
  if (!substituted.Allocate(std::strlen(password) + 1)) return rc;
  std::memcpy(substituted.data(), password, substituted.size());
  SubstitutePasswordCharacters(substituted.text());
  if (equal_in_constant_time(substituted.data(), password, substituted.size())) return rc;
  return x509parse_keyfile(key, path, substituted.text());
}

Result LoadPrivateKey(const char* folder, std::string_view name, const char* password, rsa_context* key,
                      const Trace& trace) {
  if (name.size() < kLeastNameCharacters) return argument::kEmptyInput;
  // The name came with the form: it must not lead out of the folder.
  if (name.find('/') != std::string_view::npos) return hybrid::kKeyUnreadable;
  name.remove_suffix(kSuffixCharacters);
  const BoundedPath path{folder, name, "key"};
  trace.Print("Chemin Clef Priv : %s\n", path.c_str());
  const int rc = ReadKeyFile(key, path.c_str(), password);
  trace.Print("x509parse_keyfile : %d\n", rc);
  return rc == 0 ? kOk : hybrid::kKeyUnreadable;
}

Result DecipherKey(rsa_context* private_key, const DecodedElement& block, AesKey* key, const Trace& trace) {
  // A block shorter than the modulus goes on with zeros, of a longer one the first bytes count.
  static_assert(kMostBase64Characters >= kRsaMostBytes);
  SecretArray<kMostRsaResultBytes> result;
  std::size_t length = 0;
  const int rc =
      rsa_pkcs1_decrypt(private_key, RSA_PRIVATE, &length, block.bytes.data(), result.data(), result.size());
  trace.Print("rsa_pkcs1_decrypt : %d\n", rc);
  if (rc != 0) return hybrid::kDecrypt;
  trace.Print("passwordaes : %.*s\n", static_cast<int>(length), result.text());
  if (length != key->size()) return hybrid::kDecrypt;
  std::memcpy(key->data(), result.data(), key->size());
  return kOk;
}

Result DecipherText(const AesKey& key, DecodedElement* text, Noise noise, char* out, const Trace& trace) {
  AesIv iv;
  aes_context schedule;
  unsigned char* const bytes = text->bytes.data();
  Result rc = aes_setkey_dec(&schedule, key.data(), kAes256KeyBits);
  if (rc == kOk) rc = aes_crypt_cbc(&schedule, AES_DECRYPT, text->length, iv.data(), bytes, bytes);
  trace.Print("dechiffrement aes result=%d\n", rc);
  if (rc != kOk) return rc;
  trace.Print("aed en clair=%.*s\n", static_cast<int>(text->length), text->bytes.text());
  return CopyDeciphered({bytes, text->length}, noise, out);
}

Result OpenForm(const char* form, const char* key_password, const char* folder, Noise noise, int verbose,
                char* out) {
  if (out == nullptr) return argument::kNoOutput;
  *out = 0;
  if (form == nullptr) return argument::kNoInput;
  if (folder == nullptr) return hybrid::kKeyUnreadable;
  const Trace trace(verbose > 0);
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2Utils> utils(creator.newTypV2Utils());
  if (const Result rc = utils.Init(); rc != kOk) return rc;
  Form elements;
  if (const Result rc = ReadForm(utils.get(), form, &elements, trace); rc != kOk) return rc;
  rsa_context private_key;
  if (const Result rc = LoadPrivateKey(folder, elements.name.data(), key_password, &private_key, trace);
      rc != kOk) {
    return rc;
  }
  AesKey key;
  if (const Result rc = DecipherKey(&private_key, elements.key, &key, trace); rc != kOk) return rc;
  return DecipherText(key, &elements.text, noise, out, Trace(verbose != 0));
}

}  // namespace

int Api2AesPub(const char* text, const char* certificateName, const char* folder, char* out, int verbose) {
  return EntryPoint([&]() -> Result {
    if (out == nullptr) return argument::kNoOutput;
    *out = 0;
    if (text == nullptr) return argument::kNoInput;
    if (certificateName == nullptr || folder == nullptr) return hybrid::kEncrypt;
    const Trace trace(verbose != 0);
    const BoundedPath path{folder, certificateName};
    trace.Print("input data len=%d\n", static_cast<int>(std::strlen(text)));
    SecretCBuffer padded;
    if (!PadText(text, &padded)) return kNoObject;
    trace.Print("input data len padding=%d\n", static_cast<int>(padded.size()));
    AesKey key;
    DrawBytes(&key);
    for (std::size_t i = 0; verbose > 0 && i < key.size(); ++i) {
      trace.Print("Pass char nb %d : %x\n", static_cast<int>(i), static_cast<unsigned>(key.data()[i]));
    }
    const Result rc = EncipherUnder(key, &padded);
    trace.Print("chiffrement aes result=%d\n", rc);
    if (rc != kOk) return rc;
    RsaBlock block;
    if (const Result failed = EncipherKeyFor(path.c_str(), key, &block, trace); failed != kOk) return failed;
    return WriteForm(certificateName, block, padded, out, trace);
  });
}

int Api2DeAesPriv(const char* form, const char* keyPassword, const char* folder, char* out, int verbose) {
  return EntryPoint([&] { return OpenForm(form, keyPassword, folder, Noise::kPasses, verbose, out); });
}

int kestrune_decipher_text_for_holder(const char* form, const char* keyPassword, const char* folder,
                                      char* out) {
  return EntryPoint([&] { return OpenForm(form, keyPassword, folder, Noise::kRefused, 0, out); });
}
