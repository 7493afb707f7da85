// Whether the time that the library takes, or the memory that it touches, tells of a secret: secrets are marked as
// undefined for valgrind's memory checker, which then complains of each branch and each index that depends on one.
//
//   valgrind -q --expensive-definedness-checks=yes --suppressions=campaigns/constant_time.supp constant_time
#include <valgrind/memcheck.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <kestrune/kestrune.h>
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/library.h"
#include "crypto/padding.h"
#include "crypto/pass_phrase.h"
#include "keys/install_cipher.h"
#include "keys/kestrune_key.h"
#include "keys/mask.h"
#include "keys/message_cipher.h"
#include "tests/support/bytes.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr std::size_t kBlockBytes = 256;  // of a key of 2048 bits

void Hide(const void* bytes, std::size_t count) {
  (void)VALGRIND_MAKE_MEM_UNDEFINED(bytes, count);
}

// What an operation hands out may be looked at.
void Show(const void* bytes, std::size_t count) {
  (void)VALGRIND_MAKE_MEM_DEFINED(bytes, count);
}

// Hides which characters a text has, not that none is its terminator: bit 5 stays known. It must have no letters but
// small ones.
void HideCharacters(char* text) {
  const unsigned char terminator_differs = 0x20;
  for (; *text != 0; ++text) {
    unsigned char hidden = static_cast<unsigned char>(*text);
    Hide(&hidden, 1);
    *text = static_cast<char>(hidden | terminator_differs);
  }
}

// A text whose characters are secret, not how many they are.
class HiddenText {
 public:
  explicit HiddenText(const std::string& text) : text_(text) { HideCharacters(text_.data()); }
  char* get() { return text_.data(); }
  const unsigned char* bytes() { return reinterpret_cast<const unsigned char*>(get()); }

 private:
  std::string text_;
};

class Witness {
 public:
  // Complaints stand in valgrind's output behind the operation's name.
  void Try(const std::string& name, const std::function<void()>& operation) {
    if (Complaints(name, operation) == 0) return;
    std::printf("FAILED: %s depends on a secret\n", name.c_str());
    ++failures_;
  }
  void TryPlanted(const std::string& name, const std::function<void()>& operation) {
    if (Complaints(name, operation) > 0) return;
    std::printf("FAILED: %s is not seen\n", name.c_str());
    ++failures_;
  }

  int operations() const { return operations_; }
  int failures() const { return failures_; }

 private:
  unsigned Complaints(const std::string& name, const std::function<void()>& operation) {
    ++operations_;
    VALGRIND_PRINTF("---- %s\n", name.c_str());
    const unsigned before = VALGRIND_COUNT_ERRORS;
    operation();
    return VALGRIND_COUNT_ERRORS - before;
  }

  int operations_ = 0, failures_ = 0;
};

void Demand(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "FAILED: %s\n", what);
  std::exit(EXIT_FAILURE);
}

// ---- The operations --------------------------------------------------------------------------------

void PlantedFaults(Witness* witness) {
  std::array<unsigned char, 4> secret = {1, 2, 3, 4};
  volatile int sink = 0;
  Hide(secret.data(), secret.size());
  witness->TryPlanted("a planted branch", [&] {
    if (secret[0] > 3) sink = sink + 1;
  });
  witness->TryPlanted("a planted index", [&] { sink = "0123456789ABCDEF"[secret[1] & 15]; });
  witness->TryPlanted("a planted comparison", [&] { sink = std::memcmp(secret.data(), "\1\2\3\5", 4); });
}

void Comparisons(Witness* witness) {
  for (const bool same : {true, false}) {
    Bytes a(kSha512Bytes, 7), b(kSha512Bytes, 7);
    if (!same) b[3] = 1;
    Hide(a.data(), a.size());
    Hide(b.data(), b.size());
    witness->Try(same ? "comparing equal digests" : "comparing different digests",
                 [&] { Demand(equal_in_constant_time(a.data(), b.data(), a.size()) == same, "compared"); });
  }
}

void Unpadding(Witness* witness) {
  struct Row {
    const char* name;
    unsigned char header;
    std::size_t padding;  // bytes before the separator
    std::size_t room;
    int wanted;
  };
  const std::size_t whole = kBlockBytes - 2;
  for (const Row& row :
       {Row{"a good block", 2, 200, kBlockBytes, 0}, Row{"a full block", 2, 8, kBlockBytes, 0},
        Row{"an empty block", 2, whole - 1, kBlockBytes, 0},
        Row{"a wrong header", 1, 200, kBlockBytes, ERR_RSA_INVALID_PADDING},
        Row{"a short padding", 2, 7, kBlockBytes, ERR_RSA_INVALID_PADDING},
        Row{"no separator", 2, whole, kBlockBytes, ERR_RSA_INVALID_PADDING},
        Row{"too little room", 2, 100, 20, ERR_RSA_OUTPUT_TOO_LARGE}}) {
    Bytes block(kBlockBytes, 0x55), output(kBlockBytes);
    block[0] = 0;
    block[1] = row.header;
    if (row.padding < whole) block[2 + row.padding] = 0;
    Hide(block.data(), block.size());
    int rc = 0;
    std::size_t length = 0;
    witness->Try(std::string("unpadding ") + row.name,
                 [&] { rc = crypto::Unpad(block, output.data(), row.room, &length); });
    Show(&rc, sizeof rc);
    Show(&length, sizeof length);
    Demand(rc == row.wanted && length == (rc == 0 ? whole - row.padding - 1 : 0), "unpadded");
  }
}

void Hexadecimal(Witness* witness) {
  TypV2Utils utils;
  Bytes bytes(32, 0xA7);
  std::string hex(2 * bytes.size() + 1, 0);
  Hide(bytes.data(), bytes.size());
  witness->Try("writing hexadecimal", [&] { utils.Hexadecimalise(bytes.data(), bytes.size(), hex.data()); });
  Show(hex.data(), hex.size());
  Demand(hex.starts_with("A7A7"), "hexadecimal");

  HiddenText digits("0123456789abcdef");
  unsigned long long count = 0;
  Bytes read(8);
  witness->Try("reading hexadecimal", [&] { utils.DeHexadecimalise(digits.get(), read.data(), &count); });
  Show(read.data(), read.size());
  Demand(count == read.size() && read[7] == 0xEF, "read hexadecimal");

  HiddenText phrase("a#phrase-du-lecteur");
  std::array<unsigned char, 65> key{};
  witness->Try("making a key of a pass phrase", [&] { ::BuildHexPassword(phrase.bytes(), key.data()); });
  Show(key.data(), key.size());
  Demand(std::string(reinterpret_cast<char*>(key.data())) == HexPassword("a_phrase_du_lecteur"), "the key");
}

void Masks(Witness* witness) {
  Bytes out(1000), a(1000, 1), b(1000, 2), c(1000, 3), random(48, 4);
  for (Bytes* const bytes : {&a, &b, &c, &random}) Hide(bytes->data(), bytes->size());
  witness->Try("masking", [&] {
    CyclingMask(random.data(), random.size()).Apply(out.data(), a.data(), b.data(), c.data(), out.size());
    XorInto(out.data(), a.data(), b.data(), out.size());
  });
}

void Base64(Witness* witness) {
  Bytes bytes(200, 0x5A);
  Hide(bytes.data(), bytes.size());
  Bytes text(300);
  std::size_t length = text.size();
  witness->Try("writing Base64", [&] { base64_encode(text.data(), &length, bytes.data(), bytes.size()); });
  std::size_t count = bytes.size();
  witness->Try("reading Base64", [&] { base64_decode(bytes.data(), &count, text.data(), length); });
}

// A pass phrase on its way to the key of a protected private key. What is deciphered with it is read as what it is.
void PassPhrases(Witness* witness) {
  for (const auto& [name, cipher] :
       {std::pair{"AES", crypto::Cipher::kAes256}, std::pair{"DES", crypto::Cipher::kTripleDes}}) {
    HiddenText text("une#phrase");
    const crypto::PassPhrase phrase{text.bytes(), 10};
    const Bytes iv(16, 1);
    Bytes sealed(64, 2);
    witness->Try(std::string("opening a key with a pass phrase, ") + name,
                 [&, way = cipher] { crypto::OpenTraditional(way, iv.data(), phrase, sealed); });
  }
}

// Everything that is made with a key file follows from the key of its pass phrase, which is hidden.
void KeyFiles(Witness* witness) {
  const MessageFolder folder;
  TypV2InstanceCreatorUnix creator;
  // Digits alone, so that bit 5 says nothing of them.
  const std::string clear_key = "0123456789012345678901234567890123456789012345678901234567890123";
  PersonalKey personal = folder.personal;
  personal.hex_password = clear_key;
  const std::string name = "durand." + PersonalKeyYear();
  WriteFile(folder.File(name), personal.File());

  for (const bool right : {true, false}) {
    HiddenText hex(right ? clear_key : clear_key.substr(1) + "7");
    TypV2KestruneKey key;
    Result rc = kOk;
    const auto open = [&] {
      rc = key.InitCreate(&creator, name.c_str(), 0, folder.path().c_str(), hex.get(), kReadExisting);
    };
    witness->Try(right ? "opening a key file" : "opening a key file with a wrong key", open);
    Demand(rc == (right ? kOk : key::kCheckFailed), "a key file opened");
    if (!right) continue;
    SecretCBuffer run;
    unsigned long long offset = 0;
    SecretArray<32> password;
    witness->Try("taking pad bytes", [&] {
      unsigned char* bytes = nullptr;
      rc = key.GetLineaKey(&bytes, 5000, &offset);
      run.Adopt(bytes, 5000);
      if (rc == kOk) rc = key.GetOTPassword(password.data(), &offset);
    });
    Demand(rc == kOk && run, "pad bytes taken");
  }

  HiddenText hex(clear_key);
  Bytes text(3000, 'x');
  Hide(text.data(), text.size());
  witness->Try("sealing a body", [&] {
    TypV2KestruneKey unused;
    TypKestruneV2 cipher;
    unsigned char* sealed = nullptr;
    unsigned long long length = 0;
    const bool done = cipher.InitCreate(&creator, "durand", folder.path().c_str(), hex.get()) == kOk &&
                      cipher.Low_crypter(text.data(), text.size(), &sealed, &length) == kOk;
    Demand(done, "a body sealed");
    std::free(sealed);
  });
  witness->Try("enciphering for installation", [&] {
    TypV2AESInstallKeys cipher;
    Demand(
        cipher.InitCreate(&creator) == kOk &&
            cipher.Chiffrerfichier(folder.File(name).c_str(), folder.File("out").c_str(), hex.get()) == kOk,
        "enciphered for installation");
  });
}

// The private numbers of a key are hidden as the key is made (below).
void Signatures(Witness* witness) {
  const MessageFolder folder;
  rsa_context key;
  witness->Try("reading a private key", [&] {
    Demand(x509parse_keyfile(&key, folder.File(folder.signing_key + ".key").c_str(), nullptr) == 0,
           "a key read");
  });
  Bytes digest(kSha512Bytes, 9), signature(kRsaMostBytes);
  witness->Try("signing", [&] {
    Demand(
        rsa_pkcs1_sign(&key, RSA_PRIVATE, SIG_RSA_RAW, digest.size(), digest.data(), signature.data()) == 0,
        "signed");
  });
}

}  // namespace

// ---- In the library's place (--wrap) ---------------------------------------------------------------

extern "C" {
// The answer is for everybody.
bool RealEqual(const void* a, const void* b,
               std::size_t count) asm("__real__Z22equal_in_constant_timePKvS0_m");
bool WrappedEqual(const void* a, const void* b,
                  std::size_t count) asm("__wrap__Z22equal_in_constant_timePKvS0_m");
bool WrappedEqual(const void* a, const void* b, std::size_t count) {
  const bool equal = RealEqual(a, b, count);
  Show(&equal, sizeof equal);
  return equal;
}

int RealMake(const crypto::RsaNumbers& numbers, rsa_context* key) asm(
    "__real__ZN8kestrune6crypto10MakeRsaKeyERKNS0_10RsaNumbersEP11rsa_context");
int WrappedMake(const crypto::RsaNumbers& numbers, rsa_context* key) asm(
    "__wrap__ZN8kestrune6crypto10MakeRsaKeyERKNS0_10RsaNumbersEP11rsa_context");
int WrappedMake(const crypto::RsaNumbers& numbers, rsa_context* key) {
  for (const crypto::Bytes number : {numbers.private_exponent, numbers.prime[0], numbers.prime[1],
                                     numbers.exponent[0], numbers.exponent[1], numbers.coefficient}) {
    Hide(number.data(), number.size());
  }
  const int rc = RealMake(numbers, key);
  Show(&rc, sizeof rc);
  return rc;
}
}

int main() {
  if (RUNNING_ON_VALGRIND == 0) {
    std::fprintf(stderr, "constant_time: run it under valgrind\n");
    return 2;
  }
  Witness witness;
  PlantedFaults(&witness);
  Comparisons(&witness);
  Unpadding(&witness);
  Hexadecimal(&witness);
  Masks(&witness);
  Base64(&witness);
  PassPhrases(&witness);
  KeyFiles(&witness);
  Signatures(&witness);
  std::printf("%d operations, %d failures\n", witness.operations(), witness.failures());
  return witness.failures() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
