// Sealing: each layer of a message around the one inside it.
//
// SHA-512 runs over the message five times, and no fewer do: over the text or the attachment (its signature),
// over the red, the KEST, the grey and the transport block (their trailers). Each pass begins with other
// bytes, so none can take over another's result; but a block that is signed as a whole (red, grey) is its
// trailer's input and the trailer, so the signature's digest goes on where the trailer's ends.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "blocks/block_cell.h"
#include "blocks/lent_data.h"
#include "core/entry_point.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "envelope/crypto_interface.h"
#include "envelope/flat_block.h"
#include "keys/message_cipher.h"
#include "sign/digest.h"
#include "sign/signature.h"

using namespace kestrune;

namespace {

constexpr long kDigestMode = 1;
constexpr char kListSeparator = '|';
constexpr long long kListCapacity = 100;
constexpr std::size_t kHexPasswordCharacters = 64;
constexpr std::size_t kFileNameBytes = 256;
constexpr std::size_t kNameBase64Bytes = 766;

using SignatureXml = std::array<char, kSignatureXmlBytes>;
using AttachmentXml = std::array<char, kAttachmentXmlBytes>;

std::size_t Length(const char* text) {
  return text == nullptr ? 0 : std::strlen(text);
}

bool IsNameOf(const char* text, std::size_t limit) {
  return IsShorterThan(text, limit) && *text != 0;
}

// The signer counts in 32 bits; what does not fit is more than it signs in any case.
std::uint32_t SignedLength(unsigned long long length) {
  constexpr unsigned long long kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(length < kMost ? length : kMost);
}

Result Sign(TypApiV2Signature* signer, const unsigned char* data, unsigned long long length, char* xml) {
  return signer->GetSignatureXMLLight(data, SignedLength(length), xml, kDigestMode);
}

Result SignFlat(TypApiV2Signature* signer, const FlatBlock& flat, char* xml) {
  // Too long a block is for the signer to refuse, as it would with the block itself in its hands.
  if (flat.size() > kMostSignedBytes) return Sign(signer, flat.data(), flat.size(), xml);
  return signer->GetSignatureXMLLightOfDigest(flat.digest(), xml);
}

// <AT><N>FILE NAME IN BASE64</N></AT>, then the signature.
Result DescribeAttachment(TypV2FileRef* file, const char* signature, char* xml) {
  std::array<char, kFileNameBytes> name{};
  file->GetFileNameWithoutPath(name.data());
  std::array<char, kNameBase64Bytes> base64{};
  std::size_t characters = base64.size();
  if (base64_encode(reinterpret_cast<unsigned char*>(base64.data()), &characters,
                    reinterpret_cast<const unsigned char*>(name.data()), std::strlen(name.data())) != 0) {
    return envelope::kBase64;
  }
  std::snprintf(xml, kAttachmentXmlBytes, "<AT><N>%s</N></AT>%s", base64.data(), signature);
  return kOk;
}

// The elements of a list, freed with it.
class ElementList {
 public:
  explicit ElementList(TypV2Utils* utils) : utils_(utils) {}
  ElementList(const ElementList&) = delete;
  ElementList& operator=(const ElementList&) = delete;
  ~ElementList() { utils_->FreeElementsListContent(elements_.data(), count_); }

  Result Split(const char* text, char separator) {
    count_ = kListCapacity;
    return utils_->GetElementsFromList(text, separator, elements_.data(), &count_);
  }
  std::span<char* const> elements() const { return {elements_.data(), static_cast<std::size_t>(count_)}; }

 private:
  TypV2Utils* utils_;
  std::array<char*, kListCapacity> elements_{};
  long long count_ = 0;
};

}  // namespace

// What a sender says: the arguments of CrypterSigner that describe the message.
struct TypV2CryptoInterface::Letter {
  const char* key_name;
  const char* hex_password;
  const char* sender;
  const char* to;
  const char* cc;
  const char* bcc;
  const char* reply_to;
  const char* subject;
  const char* te;
  const char* ready_recipients;
  const char* text;
  const char* attachments;
};

int TypV2CryptoInterface::CrypterSigner(const char* key_name, const char* hex_password,
                                        const char* signing_key_name, char* signing_password, const char* to,
                                        const char* cc, const char* bcc, const char* reply_to,
                                        const char* subject, const char* te, const char* ready_recipients,
                                        const char* text, const char* attachments, TypV2BlockPJ* /*record*/,
                                        unsigned char** block, unsigned long long* length, char* identifier) {
  const Letter letter{key_name, hex_password, signing_key_name, to,   cc,         bcc, reply_to,
                      subject,  te,           ready_recipients, text, attachments};
  Result rc =
      CheckLetter(letter, signing_password, block != nullptr && length != nullptr && identifier != nullptr);
  if (rc != kOk) return rc;
  *block = nullptr;
  *length = 0;
  *identifier = 0;

  Owned<TypApiV2Signature> signer(creator_->newTypApiV2Signature());
  SignatureXml red_signature;
  FlatBlock red, transport;
  CBuffer green;
  rc = signer.Init(creator_, letter.sender, signing_key_folder_.data(), signing_password);
  if (rc == kOk) rc = SealRed(signer.get(), letter, &red, red_signature.data());
  if (rc == kOk) rc = SealGreen(letter, red_signature.data(), std::move(red), &green);
  if (rc == kOk) rc = SealGrey(letter, std::move(green), std::strlen(red_signature.data()), &transport);
  if (rc == kOk) rc = SealTransport(signer.get(), &transport);
  if (rc != kOk) return rc;
  GetLastMessageID(identifier);
  transport.HandOut(block, length);
  return kOk;
}

// Deliberate: the first four tests stop at the first failure, the others all run and the last failure counts.
int TypV2CryptoInterface::CheckLetter(const Letter& letter, const char* signing_password, bool has_outputs) {
  Result rc = kOk;
  if (!IsNameOf(letter.key_name, kNameLimit)) {
    rc = envelope::kKeyName;
  } else if (!IsShorterThan(letter.hex_password, kHexPasswordCharacters + 1) ||
             std::strlen(letter.hex_password) != kHexPasswordCharacters) {
    rc = envelope::kPassword;
  } else if (!IsNameOf(letter.sender, kNameLimit)) {
    rc = envelope::kSigningKeyName;
  } else if (Length(signing_password) == 0) {
    rc = envelope::kNoSigningPassword;
  }
  if (letter.subject == nullptr) rc = envelope::kNoSubject;
  if (letter.text == nullptr && letter.attachments == nullptr) rc = envelope::kNoContent;
  if (!has_outputs) rc = envelope::kNoBlockOutput;
  if (letter.te == nullptr) rc = envelope::kNoDate;
  if (Length(letter.to) == 0 && Length(letter.cc) == 0 && Length(letter.bcc) == 0)
    rc = envelope::kNoRecipient;
  return rc;
}

// ---- Red -------------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetRouge(TypApiV2Signature* signer, const char* key_name,
                                   const char* /*hex_password*/, const char* signing_key_name,
                                   const char* /*signing_password*/, const char* to, const char* cc,
                                   const char* bcc, const char* reply_to, const char* subject, const char* te,
                                   const char* ready_recipients, const char* text, const char* attachments,
                                   TypV2BlockPJ* /*record*/, unsigned char** red,
                                   unsigned long long* red_length, char* red_signature) {
  *red_length = 0;
  const Letter letter{key_name, nullptr, signing_key_name, to,   cc,         bcc, reply_to,
                      subject,  te,      ready_recipients, text, attachments};
  FlatBlock flat;
  const Result rc = SealRed(signer, letter, &flat, red_signature);
  if (rc == kOk) flat.HandOut(red, red_length);
  return rc;
}

int TypV2CryptoInterface::SealRed(TypApiV2Signature* signer, const Letter& letter, FlatBlock* red,
                                  char* red_signature) {
  *red_signature = 0;
  Owned<TypV2BlockCell> tree(creator_->newTypV2BlockCell());
  if (const Result rc = tree.Init(creator_); rc != kOk) return rc;
  if (const Result rc = tree->SetBlockName("RED"); rc != kOk) return rc;
  // Deliberate: each part is added whatever became of the one before, and the last result counts.
  std::vector<SecretCBuffer> contents;  // of the attachments, which the tree has on loan, as it has the text
  Result rc = AddRouting(tree.get(), letter);
  if (letter.text != nullptr) rc = AddText(signer, tree.get(), letter.text);
  if (letter.attachments != nullptr) {
    rc = EntryPoint([&] { return AddAttachments(signer, tree.get(), letter.attachments, &contents); });
  }
  if (rc == kOk) rc = red->Flatten(*tree.get(), kSignatureXmlBytes);
  return rc == kOk ? SignFlat(signer, *red, red_signature) : rc;
}

int TypV2CryptoInterface::AddRouting(TypV2BlockCell* tree, const Letter& letter) {
  CBuffer routing;
  const Result rc = routing.ReceiveText([&](char** xml) {
    return GetServiceXMLRoutage(xml, letter.key_name, letter.sender, letter.to, letter.cc, letter.bcc,
                                letter.reply_to, letter.subject, letter.te, letter.ready_recipients);
  });
  return rc == kOk ? tree->AddSubBlockWithData("ROUT", routing.text(), nullptr, 0, nullptr) : rc;
}

int TypV2CryptoInterface::AddText(TypApiV2Signature* signer, TypV2BlockCell* tree, const char* text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  const std::size_t length = std::strlen(text);
  SignatureXml xml;
  if (const Result rc = Sign(signer, bytes, length, xml.data()); rc != kOk) return rc;
  return LentData::AddSubBlock(tree, "TEXT", xml.data(), bytes, length);
}

int TypV2CryptoInterface::AddAttachments(TypApiV2Signature* signer, TypV2BlockCell* tree,
                                         const char* attachments, std::vector<SecretCBuffer>* contents) {
  ElementList list(utils_.get());
  Result rc = list.Split(attachments, kListSeparator);
  if (rc != kOk) return rc;
  for (const char* path : list.elements()) {
    SecretCBuffer content;
    AttachmentXml xml;
    rc = content.Receive([&](unsigned char** data, unsigned long long* length) {
      return GetDF(signer, path, data, length, xml.data());
    });
    if (rc != kOk) continue;  // Deliberate: a file that cannot be read is left out
    rc = LentData::AddSubBlock(tree, "PJ", xml.data(), content.data(), content.size());
    if (rc != kOk) break;
    contents->push_back(std::move(content));
  }
  return rc;
}

int TypV2CryptoInterface::GetDF(TypApiV2Signature* signer, const char* path, unsigned char** data,
                                unsigned long long* length, char* xml) {
  if (path == nullptr) return argument::kNoInput;
  if (data == nullptr) return argument::kNoOutput;
  if (length == nullptr) return argument::kNoLengthOutput;
  if (xml == nullptr) return envelope::kNoXmlOutput;
  *data = nullptr;
  *length = 0;
  *xml = 0;
  Owned<TypV2FileRef> file(creator_->newTypV2FileRef());
  SecretCBuffer content;
  SignatureXml signature;
  Result rc = file.Init();
  if (rc == kOk) rc = file->SetFileName(path);
  if (rc == kOk) rc = file->OpenDF(kReadExisting);
  if (rc == kOk) rc = ReadAttachment(file.get(), &content);
  if (rc == kOk) rc = Sign(signer, content.data(), content.size(), signature.data());
  if (rc == kOk) rc = DescribeAttachment(file.get(), signature.data(), xml);
  if (rc != kOk) return rc;
  *length = content.size();
  *data = content.release();
  return kOk;
}

int TypV2CryptoInterface::ReadAttachment(TypV2FileRef* file, SecretCBuffer* content) {
  // Measured first: a file that is too large is not read.
  const auto most = static_cast<unsigned long long>(GetTailleMaxPJ());
  unsigned long long size = 0;
  Result rc = file->GetLength(&size);
  if (rc != kOk) return rc;
  if (size > most) return envelope::kAttachmentTooLarge;
  rc = content->Receive(
      [&](unsigned char** data, unsigned long long* length) { return file->GetDF(data, length); });
  if (rc != kOk) return rc;
  return content->size() > most ? envelope::kAttachmentTooLarge : kOk;
}

// ---- Green -----------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetVert(const char* key_name, const char* hex_password, const char* red_signature,
                                  const unsigned char* red, unsigned long long red_length,
                                  unsigned char** green, unsigned long long* green_length) {
  *green = nullptr;
  *green_length = 0;
  FlatBlock kest;
  const Result rc = FlattenLeaf("KEST", red_signature, red, red_length, 0, &kest);
  return rc == kOk ? Encipher(key_name, hex_password, kest, green, green_length) : rc;
}

int TypV2CryptoInterface::SealGreen(const Letter& letter, const char* red_signature, FlatBlock red,
                                    CBuffer* green) {
  if (const Result rc = Wrap("KEST", red_signature, &red); rc != kOk) return rc;
  return green->Receive([&](unsigned char** bytes, unsigned long long* length) {
    return Encipher(letter.key_name, letter.hex_password, red, bytes, length);
  });
}

int TypV2CryptoInterface::Encipher(const char* key_name, const char* hex_password, const FlatBlock& kest,
                                   unsigned char** green, unsigned long long* green_length) {
  Owned<TypKestruneV2> cipher(creator_->newTypKestruneV2());
  const Result rc = cipher.Init(creator_, key_name, message_key_folder_.data(), hex_password);
  return rc == kOk ? cipher->Low_crypter(kest.data(), kest.size(), green, green_length) : rc;
}

// ---- Grey ------------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetGris(const char* key_name, const char* sender, const char* to, const char* cc,
                                  const char* bcc, const char* reply_to, const char* subject, const char* te,
                                  const unsigned char* green, unsigned long long green_length,
                                  unsigned char** grey, unsigned long long* grey_length) {
  *grey = nullptr;
  *grey_length = 0;
  const Letter letter{key_name, nullptr, sender, to,      cc,      bcc,
                      reply_to, subject, te,     nullptr, nullptr, nullptr};
  FlatBlock flat;
  const Result rc = FlattenGrey(letter, green, green_length, 0, &flat);
  if (rc == kOk) flat.HandOut(grey, grey_length);
  return rc;
}

int TypV2CryptoInterface::GetGrisWithReadyXML(const char* /*unused*/, const char* xml,
                                              const unsigned char* green, unsigned long long green_length,
                                              unsigned char** grey, unsigned long long* grey_length) {
  *grey = nullptr;
  *grey_length = 0;
  FlatBlock flat;
  const Result rc = FlattenLeaf("DATA", xml, green, green_length, 0, &flat);
  if (rc == kOk) flat.HandOut(grey, grey_length);
  return rc;
}

int TypV2CryptoInterface::SealGrey(const Letter& letter, CBuffer green, std::size_t xml_room,
                                   FlatBlock* grey) {
  return FlattenGrey(letter, green.data(), green.size(), xml_room, grey);
}

int TypV2CryptoInterface::FlattenGrey(const Letter& letter, const unsigned char* green,
                                      unsigned long long green_length, std::size_t xml_room,
                                      FlatBlock* grey) {
  CBuffer routing;
  const Result rc = routing.ReceiveText([&](char** xml) {
    return GetBasicServiceXML(xml, letter.key_name, letter.sender, letter.to, letter.cc, letter.bcc,
                              letter.reply_to, letter.subject, letter.te);
  });
  return rc == kOk ? FlattenLeaf("DATA", routing.text(), green, green_length, xml_room, grey) : rc;
}

// ---- Transport -------------------------------------------------------------------------------------

int TypV2CryptoInterface::GetPourHTTPS(TypApiV2Signature* signer, const unsigned char* grey,
                                       unsigned long long grey_length, unsigned char** block,
                                       unsigned long long* block_length) {
  *block = nullptr;
  *block_length = 0;
  SignatureXml signature;
  FlatBlock flat;
  Result rc = Sign(signer, grey, grey_length, signature.data());
  if (rc == kOk) rc = FlattenLeaf("AUTH", signature.data(), grey, grey_length, 0, &flat);
  if (rc == kOk) flat.HandOut(block, block_length);
  return rc;
}

int TypV2CryptoInterface::SealTransport(TypApiV2Signature* signer, FlatBlock* grey) {
  SignatureXml signature;
  const Result rc = SignFlat(signer, *grey, signature.data());
  return rc == kOk ? Wrap("AUTH", signature.data(), grey) : rc;
}

// ---- For all layers --------------------------------------------------------------------------------

// A tree of one cell.
int TypV2CryptoInterface::FlattenLeaf(const char* name, const char* xml, const unsigned char* data,
                                      unsigned long long length, std::size_t xml_room, FlatBlock* flat) {
  Owned<TypV2BlockCell> cell(creator_->newTypV2BlockCell());
  if (const Result rc = cell.Init(creator_); rc != kOk) return rc;
  if (const Result rc = LentData::Set(cell.get(), name, xml, data, length); rc != kOk) return rc;
  return flat->Flatten(*cell.get(), xml_room);
}

int TypV2CryptoInterface::Wrap(const char* name, const char* xml, FlatBlock* flat) {
  Owned<TypV2BlockCell> cell(creator_->newTypV2BlockCell());
  const Result rc = cell.Init(creator_);
  return rc == kOk ? flat->Wrap(cell.get(), name, xml) : rc;
}
