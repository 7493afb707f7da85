#include "campaigns/marked_yard.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/pem.h>

#include <cstdlib>
#include <cstring>

namespace kestrune::testing {
namespace {

constexpr std::size_t kTextBytes = 1500, kShortTextBytes = 160;
constexpr std::size_t kAesBlock = 16;
constexpr const char *kUserMark = "PhraseDuLecteur", *kSignerMark = "PhraseDuSignataire";
constexpr const char *kLetterMark = "LettreSecret", *kAttachmentMark = "PieceSecrete";  // 12: whole in Base64
constexpr const char* kShortTextMark = "TexteTresSecret_";
// Wherever a run of a pad begins, 16 bytes of it hold the mark.
constexpr const char *kFirstPadMark = "PREMIER:", *kSecondPadMark = "SECOND::", *kMasterPadMark = "MAITRE::";

std::string Repeated(const std::string& mark, std::size_t bytes) {
  std::string text;
  while (text.size() < bytes) text += mark;
  text.resize(bytes);
  return text;
}

Bytes PadOfMark(const std::string& mark, std::size_t bytes) {
  return ToBytes(Repeated(mark, bytes));
}

void WriteProtected(EVP_PKEY* key, const std::string& path, const char* phrase) {
  BIO* const file = BIO_new_file(path.c_str(), "w");
  const int length = static_cast<int>(std::strlen(phrase));
  if (file == nullptr ||
      PEM_write_bio_PrivateKey_traditional(file, key, EVP_des_ede3_cbc(),
                                           reinterpret_cast<unsigned char*>(const_cast<char*>(phrase)),
                                           length, nullptr, nullptr) != 1) {
    std::abort();
  }
  BIO_free(file);
}

// A number as its file has it and as arithmetic has it; its middle, where no rounding or leading zero matters.
void MarkNumber(EVP_PKEY* key, const char* which, std::vector<Mark>* marks) {
  BIGNUM* number = nullptr;
  if (EVP_PKEY_get_bn_param(key, which, &number) != 1) std::abort();
  std::string bytes(static_cast<std::size_t>(BN_num_bytes(number)), 0);
  BN_bn2bin(number, reinterpret_cast<unsigned char*>(bytes.data()));
  BN_clear_free(number);
  const std::string middle = bytes.substr(32, 16);
  marks->push_back({std::string("private key, ") + which, middle});
  marks->push_back({std::string("private key, ") + which + " in limbs", {middle.rbegin(), middle.rend()}});
}

}  // namespace

PrivateKey ReadPrivateKey(const std::string& path, const char* pass_phrase) {
  FILE* const file = std::fopen(path.c_str(), "r");
  if (file == nullptr) std::abort();
  PrivateKey key(PEM_read_PrivateKey(file, nullptr, nullptr, const_cast<char*>(pass_phrase)), EVP_PKEY_free);
  std::fclose(file);
  if (key == nullptr) std::abort();
  return key;
}

std::vector<Mark> MarksOf(EVP_PKEY* key) {
  std::vector<Mark> marks;
  for (const char* which :
       {OSSL_PKEY_PARAM_RSA_D, OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2,
        OSSL_PKEY_PARAM_RSA_EXPONENT1, OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1}) {
    MarkNumber(key, which, &marks);
  }
  return marks;
}

MarkedYard::MarkedYard(std::size_t attachment_bytes)
    : MessageFolder(64),
      letter(Repeated(kLetterMark, kTextBytes)),
      short_text(Repeated(kShortTextMark, kShortTextBytes)),
      attachment(File("piece.txt")) {
  // No message goes round: what is cut off a pad must be missed.
  const std::size_t pad = (64 + attachment_bytes / 256) * kPadChunk;
  personal.first_pad = PadOfMark(kFirstPadMark, pad);
  personal.second_pad = PadOfMark(kSecondPadMark, 4 * kPadChunk);
  master.pad = PadOfMark(kMasterPadMark, pad);
  personal.hex_password = hex;
  AddUser("durand");
  WriteFile(File("Master." + PersonalKeyYear()), master.File());
  WriteFile(attachment, Repeated(kAttachmentMark, attachment_bytes));
  WriteFile(File("text"), letter);
  WriteFile(File("short"), short_text);

  const std::string open_key = DataPath("rsa2048.key");
  const PrivateKey key = ReadPrivateKey(open_key);
  protected_name = AddSigningKey("rsa2048", "protege");
  open_name = AddSigningKey("rsa2048", "ouvert");
  WriteProtected(key.get(), File(protected_name + ".key"), kSignerPhraseOnFile);
  marks = MarksOf(key.get());
  const std::string pem = ToText(ReadFile(open_key));
  marks.push_back({"private key's file", pem.substr(pem.size() / 2, 40)});
  MarkPassPhrases();
  MarkTexts();
  for (const char* mark : {kFirstPadMark, kSecondPadMark, kMasterPadMark}) marks.push_back({mark, mark});
}

void MarkedYard::MarkPassPhrases() {
  for (const char* mark : {kUserMark, kSignerMark}) marks.push_back({mark, mark});
  const Bytes binary = FromHex(hex);
  marks.push_back({"reader's key, hexadecimal", hex.substr(8, 32)});
  marks.push_back({"reader's key", ToText(binary).substr(0, 16)});
  Bytes ivs = personal.File();
  ivs.assign(ivs.begin() + kKeyHeaderBytes, ivs.begin() + kKeyHeaderBytes + 64 * kAesBlock);
  const Bytes zeros(kAesBlock);
  AesCbc(false, binary.data(), zeros.data(), ivs.data(), ivs.size());
  marks.push_back({"first initial vector", ToText(ivs).substr(0, kAesBlock)});
}

void MarkedYard::MarkTexts() {
  marks.push_back({kShortTextMark, kShortTextMark});
  for (const std::string mark : {kLetterMark, kAttachmentMark}) {
    marks.push_back({mark, mark});
    for (std::size_t phase = 0; phase < 3; ++phase) {
      marks.push_back({mark + " in Base64", ToBase64(Repeated(mark, 48).substr(phase, 15))});
    }
  }
}

}  // namespace kestrune::testing
