// Opening: each layer of a message checked and taken off. The digest of a grey block's trailer goes on to the one that was
// signed (docs/message.md).
#include <array>
#include <cstring>
#include <string_view>

#include "blocks/block_cell.h"
#include "blocks/flat_digest.h"
#include "core/instance_creator.h"
#include "core/light_xml.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "envelope/kest.h"
#include "envelope/lent_tree.h"
#include "keys/message_cipher.h"
#include "sign/digest.h"
#include "sign/signature_verify.h"

using namespace kestrune;

namespace {

constexpr unsigned long long kMostBytesToDecipher = 1'000'000'000;

static_assert(kSignerNameBytes == TypApiV2SignatureVerify::kNameOutputBytes);

Result CheckDecipherInput(const unsigned char* input, unsigned long long length) {
  if (input == nullptr) return envelope::kNoInput;
  if (length == 0) return argument::kEmptyInput;
  if (length > kMostBytesToDecipher) return envelope::kTooLongToDecipher;
  return kOk;
}

}  // namespace

// A transport block on the way in. The cells lend their data from the block.
struct TypV2CryptoInterface::Transport {
  Owned<TypV2BlockCell> auth;
  Owned<TypV2BlockCell> data;
  CBuffer signature;
  std::array<char, kSignerNameBytes> signer{};
};

// ---- Transport -------------------------------------------------------------------------------------

int TypV2CryptoInterface::ExtractRoutageOnlyFromHTTPSBlock(const unsigned char* block,
                                                           unsigned long long length, char** routing,
                                                           char* key_reference, char* signer,
                                                           char** signature) {
  return ExtractVertFlatFromHTTPSBlock(block, length, routing, key_reference, signer, nullptr, nullptr,
                                       signature);
}

// Kept so: no argument is refused here. A missing or short block fails as one that cannot be loaded, a
// missing output where it is needed, and a block of any length is read.
int TypV2CryptoInterface::ExtractVertFlatFromHTTPSBlock(const unsigned char* block, unsigned long long length,
                                                        char** routing, char* key_reference, char* signer,
                                                        unsigned char** green,
                                                        unsigned long long* green_length, char** signature) {
  if (routing != nullptr) *routing = nullptr;
  if (signature != nullptr) *signature = nullptr;
  if (green != nullptr) *green = nullptr;
  if (green_length != nullptr) *green_length = 0;

  Transport transport;
  Result rc = OpenTransport(block, length, &transport);
  // The sender's signature is for the caller to see, also when it does not hold.
  if (signature != nullptr) *signature = transport.signature.release_text();
  if (rc != kOk) return rc;
  CBuffer xml;
  if (routing == nullptr) return block::kNoOutput;
  rc = xml.ReceiveText([&](char** text) { return transport.data->GetXMLForkCopy(text); });
  if (rc != kOk) return rc;
  if (signer != nullptr) std::strcpy(signer, transport.signer.data());
  if (key_reference != nullptr) {
    if (rc = CopyKeyReference(xml.text(), key_reference); rc != kOk) return rc;
  }
  if (green != nullptr && green_length != nullptr) {
    if (rc = transport.data->GetDataForkCopy(green, green_length); rc != kOk) return rc;
  }
  *routing = xml.release_text();
  return kOk;
}

int TypV2CryptoInterface::ExtractGrisFromHTTPSBlock(const unsigned char* block, unsigned long long length,
                                                    unsigned char** grey, unsigned long long* grey_length,
                                                    char* signer) {
  *grey = nullptr;
  *grey_length = 0;
  Transport transport;
  Result rc = OpenTransport(block, length, &transport);
  if (rc == kOk) rc = transport.auth->GetDataForkCopy(grey, grey_length);
  if (rc == kOk && signer != nullptr) std::strcpy(signer, transport.signer.data());
  return rc;
}

int TypV2CryptoInterface::OpenTransport(const unsigned char* block, unsigned long long length,
                                        Transport* transport) {
  Result rc = LoadLentTree(creator_, block, length, &transport->auth);
  if (rc != kOk) return rc;
  Owned<TypApiV2SignatureVerify> verifier(creator_->newTypApiV2SignatureVerify());
  if (rc = verifier.Init(creator_, signing_key_folder_.data()); rc != kOk) return rc;
  rc = transport->signature.ReceiveText([&](char** text) { return transport->auth->GetXMLForkCopy(text); });
  if (rc != kOk) return rc;

  const unsigned char* const grey = transport->auth->GetDataForkPtr();
  const unsigned long long grey_length = transport->auth->GetDataForkLen();
  const FlatDigests digests = DigestFlatTree(grey, grey_length);
  const KnownDigest known(verifier.get(), grey, grey_length, digests.whole.data());
  rc = verifier->VerifySignAndIntegrityDataFromXMLSignBlock(transport->signature.text(), grey, grey_length,
                                                            transport->signer.data());
  return rc == kOk ? LoadLentTree(creator_, grey, grey_length, digests, &transport->data) : rc;
}

int TypV2CryptoInterface::CopyKeyReference(const char* routing, char* key_reference) {
  if (routing == nullptr) return envelope::kNoKeyReference;
  CBuffer content;
  if (!content.Allocate(std::strlen(routing) + 1)) return kNoObject;
  const Result rc = ExtractFirst(utils_.get(), routing, "M", content.text(), std::strlen(routing));
  if (rc != kOk) return rc;
  std::array<char, kKeyReferenceBytes> found{};
  if (ExtractFirst(utils_.get(), content.text(), "C", found.data(), limits::kKeyReference) != kOk) {
    return envelope::kNoKeyReference;
  }
  std::strcpy(key_reference, found.data());
  return kOk;
}

// ---- Grey ------------------------------------------------------------------------------------------

// Kept so: no argument is refused in the two operations on a grey block either.
int TypV2CryptoInterface::ExtractRoutageOnlyFromGrisBlock(const unsigned char* grey,
                                                          unsigned long long length, char** routing) {
  if (routing != nullptr) *routing = nullptr;
  Owned<TypV2BlockCell> cell;
  if (const Result rc = LoadLentTree(creator_, grey, length, &cell); rc != kOk) return rc;
  return cell->GetXMLForkCopy(routing);
}

int TypV2CryptoInterface::ExtractVertFromGrisBlock(const unsigned char* grey, unsigned long long length,
                                                   char** routing, unsigned char** green,
                                                   unsigned long long* green_length) {
  if (routing != nullptr) *routing = nullptr;
  if (green != nullptr) *green = nullptr;
  if (green_length != nullptr) *green_length = 0;
  Owned<TypV2BlockCell> cell;
  if (const Result rc = LoadLentTree(creator_, grey, length, &cell); rc != kOk) return rc;
  if (routing == nullptr) return block::kNoOutput;
  CBuffer xml;
  Result rc = xml.ReceiveText([&](char** text) { return cell->GetXMLForkCopy(text); });
  if (rc == kOk) rc = cell->GetDataForkCopy(green, green_length);
  if (rc == kOk) *routing = xml.release_text();
  return rc;
}

// ---- Green -----------------------------------------------------------------------------------------

int TypV2CryptoInterface::DeCrypterVertFlatToVert(const unsigned char* green, unsigned long long length,
                                                  const char* key_reference, const char* hex_password,
                                                  unsigned char** kest, unsigned long long* kest_length) {
  if (const Result rc = CheckDecipherInput(green, length); rc != kOk) return rc;
  if (kest == nullptr) return argument::kNoOutput;
  if (kest_length == nullptr) return argument::kNoLengthOutput;
  *kest = nullptr;
  *kest_length = 0;
  return Decipher(green, length, key_reference, hex_password, kest, kest_length);
}

// Kept so: the two halves are not asked through their own slots; whoever replaces one replaces this one too.
int TypV2CryptoInterface::DeCrypterVertFlat(const unsigned char* green, unsigned long long length,
                                            const char* key_reference, const char* hex_password,
                                            TypV2BlockCell** red) {
  if (const Result rc = CheckDecipherInput(green, length); rc != kOk) return rc;
  if (red == nullptr) return argument::kNoOutput;
  *red = nullptr;
  SecretCBuffer kest;
  const Result rc = kest.Receive([&](unsigned char** bytes, unsigned long long* kest_length) {
    return Decipher(green, length, key_reference, hex_password, bytes, kest_length);
  });
  return rc == kOk ? LoadRed(kest.data(), kest.size(), red) : rc;
}

int TypV2CryptoInterface::Decipher(const unsigned char* green, unsigned long long length,
                                   const char* key_reference, const char* hex_password, unsigned char** kest,
                                   unsigned long long* kest_length) {
  Owned<TypKestruneV2> cipher(creator_->newTypKestruneV2());
  const Result rc = cipher.Init(creator_, "", message_key_folder_.data(), "");
  if (rc != kOk) return rc;
  return cipher->Low_decrypter(green, length, key_reference, hex_password, kest, kest_length);
}

// ---- Red -------------------------------------------------------------------------------------------

int TypV2CryptoInterface::LoadRedFromUncryptedVertFlat(const unsigned char* kest, unsigned long long length,
                                                       TypV2BlockCell** red) {
  if (const Result rc = CheckDecipherInput(kest, length); rc != kOk) return rc;
  if (red == nullptr) return argument::kNoOutput;
  *red = nullptr;
  return LoadRed(kest, length, red);
}

int TypV2CryptoInterface::LoadRed(const unsigned char* kest, unsigned long long length,
                                  TypV2BlockCell** red) {
  Kest loaded;
  Result rc = loaded.Load(creator_, utils_.get(), kest, length);
  if (rc != kOk) return rc;
  Owned<TypV2BlockCell> tree(creator_->newTypV2BlockCell());
  if (rc = tree.Init(creator_); rc != kOk) return rc;
  if (rc = tree->LoadFlatData(loaded.red().data(), loaded.red().size()); rc != kOk) return rc;
  *red = tree.release();
  return kOk;
}
