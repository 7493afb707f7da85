// The red block: the message in clear, its parts signed one by one, and the whole once more.
#include <array>
#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

#include "blocks/block_cell.h"
#include "blocks/lent_data.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "envelope/crypto_interface.h"
#include "envelope/handover.h"
#include "envelope/letter.h"
#include "envelope/signing.h"
#include "sign/digest.h"

using namespace kestrune;

namespace {

constexpr char kListSeparator = '|';
constexpr long long kListCapacity = 100;
constexpr std::size_t kNameBase64Bytes = 766;

using AttachmentXml = std::array<char, kAttachmentXmlBytes>;

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

// The tree of a message in clear. It has the text and the attachments on loan.
class RedTree {
 public:
  RedTree(TypV2CryptoInterface* envelope, TypV2Utils* utils, TypApiV2Signature* signer)
      : envelope_(envelope), utils_(utils), signer_(signer) {}

  Result Build(TypV2InstanceCreator* creator, const Letter& letter) {
    tree_ = Owned<TypV2BlockCell>(creator->newTypV2BlockCell());
    if (const Result rc = tree_.Init(creator); rc != kOk) return rc;
    if (const Result rc = tree_->SetBlockName("RED"); rc != kOk) return rc;
    // Kept so: each part is added whatever became of the one before, and the last result counts. But
    // where memory ran out nothing that follows can be trusted to be whole.
    Result rc = AddRouting(letter);
    if (rc != kNoObject && letter.text != nullptr) rc = AddText(letter.text);
    if (rc != kNoObject && letter.attachments != nullptr) rc = AddAttachments(letter.attachments);
    return rc;
  }

  const TypV2BlockCell& root() const { return *tree_.get(); }

 private:
  Result AddRouting(const Letter& letter) {
    CBuffer routing;
    const Result rc = routing.ReceiveText(
        [&](char** xml) { return LetterSlots(envelope_).GetServiceXMLRoutage(letter, xml); });
    return rc == kOk ? tree_->AddSubBlockWithData("ROUT", routing.text(), nullptr, 0, nullptr) : rc;
  }

  Result AddText(const char* text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    const std::size_t length = std::strlen(text);
    SignatureXml xml;
    const Result rc = Sign(signer_, bytes, length, xml.data());
    return rc == kOk ? LentData::AddSubBlock(tree_.get(), "TEXT", xml.data(), bytes, length) : rc;
  }

  Result AddAttachments(const char* attachments) {
    ElementList list(utils_);
    Result rc = list.Split(attachments, kListSeparator);
    if (rc != kOk) return rc;
    SecretCBuffer* content = contents_.data();
    for (const char* path : list.elements()) {
      AttachmentXml xml;
      rc = content->Receive([&](unsigned char** data, unsigned long long* length) {
        return envelope_->GetDF(signer_, path, data, length, xml.data());
      });
      if (rc == kNoObject) break;
      if (rc != kOk) continue;  // Kept so: a file that cannot be read is left out
      rc = LentData::AddSubBlock(tree_.get(), "PJ", xml.data(), content->data(), content->size());
      if (rc != kOk) break;
      ++content;
    }
    return rc;
  }

  TypV2CryptoInterface* const envelope_;
  TypV2Utils* const utils_;
  TypApiV2Signature* const signer_;
  std::array<SecretCBuffer, kListCapacity> contents_;  // of the attachments; outlives the tree
  Owned<TypV2BlockCell> tree_;
};

// <AT><N>FILE NAME IN BASE64</N></AT>, then the signature.
Result DescribeAttachment(TypV2FileRef* file, const char* signature, char* xml) {
  std::array<char, limits::kPath + 1> name{};
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

}  // namespace

int TypV2CryptoInterface::GetRouge(TypApiV2Signature* signer, const char* key_name,
                                   const char* /*hex_password*/, const char* signing_key_name,
                                   const char* /*signing_password*/, const char* to, const char* cc,
                                   const char* bcc, const char* reply_to, const char* subject, const char* te,
                                   const char* ready_recipients, const char* text, const char* attachments,
                                   TypV2BlockPJ* /*record*/, unsigned char** red,
                                   unsigned long long* red_length, char* red_signature) {
  *red_length = 0;
  *red_signature = 0;
  const Letter letter{.key_name = key_name,
                      .sender = signing_key_name,
                      .to = to,
                      .cc = cc,
                      .bcc = bcc,
                      .reply_to = reply_to,
                      .subject = subject,
                      .te = te,
                      .ready_recipients = ready_recipients,
                      .text = text,
                      .attachments = attachments};
  Layer layer;
  {
    RedTree tree(this, utils_.get(), signer);
    if (const Result rc = tree.Build(creator_, letter); rc != kOk) return rc;
    if (const Result rc = layer.Flatten(tree.root(), RoomAround()); rc != kOk) return rc;
  }
  const KnownDigest known(signer, layer.data(), layer.size(), layer.digest());
  const Result rc = Sign(signer, layer.data(), layer.size(), red_signature);
  if (rc == kOk) PassOn(std::move(layer), red, red_length);
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
