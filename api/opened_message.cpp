// An opened message, part by part, and what its signatures say.
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "api/opening.h"
#include "api/sender.h"
#include "blocks/flat_digest.h"
#include "core/entry_point.h"
#include "core/light_xml.h"
#include "crypto/classic.h"
#include "envelope/kest.h"
#include "envelope/lent_tree.h"
#include "mail/block_visit.h"
#include "sign/digest.h"
#include "sign/signature_verify.h"

using namespace kestrune;

namespace {

static_assert(KESTRUNE_SIGNER_NAME_BYTES == TypApiV2SignatureVerify::kNameOutputBytes);

// What the caller gets, and what it lies in.
struct Message : kestrune_message {
  SecretCBuffer bytes;
  std::vector<kestrune_part> parts;  // the texts, then the attachments
};

// A cell's XML up to its first zero. All of it is wiped.
class XmlOf {
 public:
  Result Read(const TypV2BlockCell& cell) {
    char* copy = nullptr;
    const Result rc = cell.GetXMLForkCopy(&copy);
    text_.Adopt(copy, static_cast<std::size_t>(cell.GetXMLForkLen()) + 1);
    return rc;
  }
  const char* text() const { return text_.text(); }  // null: the cell has none
  std::string_view view() const { return text_ ? std::string_view(text_.text()) : std::string_view(); }

 private:
  SecretCBuffer text_;
};

std::string_view FindIn(std::string_view xml, std::string_view outer, std::string_view inner) {
  const auto record = FindElement(xml, outer);
  const auto value = record ? FindElement(record->value, inner) : record;
  return value ? value->value : std::string_view();
}

// Takes a red tree apart. Visits its blocks as the mail does: both must show the same message.
class Maker {
 public:
  Result Init(TypV2InstanceCreator* creator, const char* folder) {
    message_.reset(new (std::nothrow) Message());
    if (!message_) return kNoObject;
    verifier_ = Owned<TypApiV2SignatureVerify>(creator->newTypApiV2SignatureVerify());
    return verifier_.Init(creator, folder);
  }

  // `signature` is null, and there are no bytes, where the red block's signature is not known.
  Result Make(const TypV2BlockCell& red, const char* signature, std::span<const unsigned char> flat,
              const FlatDigests& digests) {
    if (const Result rc = SetUp(red); rc != kOk) return rc;
    if (const Result rc = CopyRouting(red); rc != kOk) return rc;
    const KnownDigest known(verifier_.get(), flat.data(), flat.size(), digests.whole.data());
    message_->red.data = Keep(nullptr, 0);
    message_->red.name = "";
    if (const Result rc = Check(signature, flat, &message_->red); rc != kOk) return rc;
    return mail::VisitBlocks(&red, [&](const TypV2BlockCell& cell) {
      if (mail::HasBlockName(cell, kText)) return Take(cell, false, text_++);
      return mail::HasBlockName(cell, kAttachment) ? Take(cell, true, attachment_++) : kOk;
    });
  }

  kestrune_message* release() { return message_.release(); }

 private:
  static constexpr std::string_view kText = "TEXT", kAttachment = "PJ";

  // All bytes and names lie in one piece of memory, which is measured first; each is followed by a zero.
  Result SetUp(const TypV2BlockCell& red) {
    std::size_t room = 2;  // the zeros of the red part and of a routing that is missing
    if (const TypV2BlockCell* const routing = red.FindSubBlock("ROUT"); routing != nullptr) {
      room += static_cast<std::size_t>(routing->GetXMLForkLen()) + 1;
    }
    (void)mail::VisitBlocks(&red, [&](const TypV2BlockCell& cell) -> Result {
      const bool is_attachment = mail::HasBlockName(cell, kAttachment);
      if (!is_attachment && !mail::HasBlockName(cell, kText)) return kOk;
      ++(is_attachment ? message_->attachments : message_->texts);
      room += static_cast<std::size_t>(cell.GetDataForkLen()) + 1;
      // A name is shorter than the XML that it stands in.
      if (is_attachment) room += static_cast<std::size_t>(cell.GetXMLForkLen()) + 1;
      return kOk;
    });
    if (!message_->bytes.AllocateUncleared(room)) return kNoObject;
    next_ = message_->bytes.data();
    end_ = next_ + room;
    message_->parts.resize(static_cast<std::size_t>(message_->texts + message_->attachments));
    text_ = message_->parts.data();
    attachment_ = text_ + message_->texts;
    message_->text = text_;
    message_->attachment = attachment_;
    message_->routing = "";
    return kOk;
  }

  Result CopyRouting(const TypV2BlockCell& red) {
    const TypV2BlockCell* const cell = red.FindSubBlock("ROUT");
    XmlOf xml;
    if (cell != nullptr) {
      if (const Result rc = xml.Read(*cell); rc != kOk) return rc;
    }
    const std::string_view routing = xml.view();
    const auto* const copy = reinterpret_cast<const char*>(Keep(routing.data(), routing.size()));
    message_->routing = copy;
    from_ = FindIn({copy, routing.size()}, "M", "F");
    return kOk;
  }

  Result Take(const TypV2BlockCell& cell, bool is_attachment, kestrune_part* part) {
    XmlOf xml;
    if (const Result rc = xml.Read(cell); rc != kOk) return rc;
    const auto length = static_cast<std::size_t>(cell.GetDataForkLen());
    part->data = Keep(cell.GetDataForkPtr(), length);
    part->length = length;
    part->name = is_attachment ? KeepDecoded(FindIn(xml.view(), "AT", "N")) : "";
    return Check(xml.text(), {part->data, length}, part);
  }

  const unsigned char* Keep(const void* bytes, std::size_t count) {
    unsigned char* const kept = next_;
    if (count > 0) std::memcpy(kept, bytes, count);
    kept[count] = 0;
    next_ += count + 1;
    return kept;
  }

  const char* KeepDecoded(std::string_view base64) {
    auto* const name = reinterpret_cast<char*>(next_);
    auto length = static_cast<std::size_t>(end_ - next_);
    const auto* const characters = reinterpret_cast<const unsigned char*>(base64.data());
    if (base64.empty() || base64_decode(next_, &length, characters, base64.size()) != 0) return "";
    name[length] = 0;
    next_ += length + 1;
    return name;
  }

  // That there was no memory says nothing of a signature.
  Result Check(const char* xml, std::span<const unsigned char> bytes, kestrune_part* part) {
    verifier_->FreePublicKey();  // each signature is checked with the certificate that it names itself
    const Result rc =
        verifier_->VerifySignAndIntegrityDataFromXMLSignBlock(xml, bytes.data(), bytes.size(), part->signer);
    part->signature = rc;
    part->by_sender = rc == kOk && IsSender(part->signer, from_) ? 1 : 0;
    return rc == kNoObject ? rc : kOk;
  }

  std::unique_ptr<Message> message_;
  Owned<TypApiV2SignatureVerify> verifier_;
  unsigned char* next_ = nullptr;
  unsigned char* end_ = nullptr;
  kestrune_part* text_ = nullptr;
  kestrune_part* attachment_ = nullptr;
  std::string_view from_;
};

// The red tree over the bytes that were deciphered, which the message copies.
Result TakeApart(Opening* opening, const SecretCBuffer& flat, const char* folder,
                 kestrune_message** message) {
  Kest kest;
  Result rc = kest.Load(opening->creator(), opening->utils(), flat.data(), flat.size());
  if (rc != kOk) return rc;
  const FlatDigests digests = DigestFlatTree(kest.red().data(), kest.red().size());
  Owned<TypV2BlockCell> red;
  rc = LoadLentTree(opening->creator(), kest.red().data(), kest.red().size(), digests, &red);
  if (rc != kOk) return rc;
  Maker maker;
  rc = maker.Init(opening->creator(), folder);
  if (rc == kOk) rc = maker.Make(*red.get(), kest.signature(), kest.red(), digests);
  if (rc == kOk) *message = maker.release();
  return rc;
}

}  // namespace

long kestrune_open_message(const unsigned char* grey, unsigned long long length, const char* folder,
                           const char* password, kestrune_message** message) {
  if (message != nullptr) *message = nullptr;
  if (grey == nullptr || folder == nullptr || password == nullptr) return argument::kNoInput;
  if (message == nullptr) return argument::kNoOutput;
  return EntryPoint([&]() -> long {
    Opening opening;
    Result rc = opening.Init(folder);
    if (rc == kOk) rc = opening.TakeApartGrey(grey, length);
    SecretCBuffer flat;
    if (rc == kOk) {
      HexPassword hex_password;
      MakeHexPassword(password, &hex_password);
      rc = opening.Decipher(hex_password.text(), &flat);
    }
    return rc == kOk ? TakeApart(&opening, flat, folder, message) : rc;
  });
}

long kestrune_take_apart(TypV2BlockCell* red, const char* folder, kestrune_message** message) {
  if (message != nullptr) *message = nullptr;
  if (red == nullptr) return mail::kNoTree;
  if (folder == nullptr) return argument::kNoInput;
  if (message == nullptr) return argument::kNoOutput;
  return EntryPoint([&]() -> long {
    TypV2InstanceCreatorUnix creator;
    Maker maker;
    Result rc = maker.Init(&creator, folder);
    if (rc == kOk) rc = maker.Make(*red, nullptr, {}, FlatDigests());
    if (rc == kOk) *message = maker.release();
    return rc;
  });
}

void kestrune_free_message(kestrune_message* message) {
  delete static_cast<Message*>(message);
}
