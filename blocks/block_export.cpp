// A tree for applications: as tagged text, and as the older message structure.
#include <array>
#include <cstring>
#include <string_view>

#include "blocks/block_cell.h"
#include "blocks/tree_walk.h"
#include "blocks/utils_of_cells.h"
#include "blocks/v1_structure.h"
#include "core/entry_point.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"

using namespace kestrune;

namespace {

constexpr std::string_view kTextName = "TEXT";
constexpr std::string_view kAttachmentName = "PJ";
constexpr long kWithData = 1;  // flag of the text export
constexpr std::string_view kTextSeparator = "\r\r";

constexpr char kFileNameTag[] = "N";
constexpr std::size_t kFileNameMost = 255;  // characters, encoded and decoded
constexpr char kNameWithoutXml[] = "inconnu.data";
constexpr char kNameWithoutElement[] = "inconnu2.data";

const char* AsText(const unsigned char* bytes) {
  return reinterpret_cast<const char*>(bytes);
}

// Decodes the file name that the XML of an attachment carries in <N>. A missing or over-long one counts as
// empty, so that a file name never stops an export.
Result DecodeFileName(TypV2Utils* utils, const char* xml, SecretArray<kFileNameMost + 1>* name) {
  SecretArray<kFileNameMost + 1> encoded;
  const Result rc =
      utils->ExtractSmallValueFromXMLLight(xml, kFileNameTag, 1, encoded.text(), 0, kFileNameMost);
  if (rc == kNoObject) return rc;
  if (rc != kOk) encoded.Wipe();
  if (*encoded.text() == 0) {
    std::memcpy(name->text(), kNameWithoutElement, sizeof kNameWithoutElement);
    return kOk;
  }
  std::size_t length = kFileNameMost;
  if (base64_decode(name->data(), &length, encoded.data(), std::strlen(encoded.text())) != 0)
    return block::kBase64;
  name->data()[length] = 0;
  return kOk;
}

}  // namespace

// ---- The older message structure -----------------------------------------------------------------------

class TypV2BlockCell::V1Export {
 public:
  explicit V1Export(TypV1SimpleStruc* structure) : structure_(structure) {}

  bool Enter(const TypV2BlockCell& cell) {
    rc_ = Add(cell);
    return rc_ == kOk;
  }
  bool Leave(const TypV2BlockCell&) { return rc_ == kOk; }

  Result rc() const { return rc_; }

 private:
  Result Add(const TypV2BlockCell& cell) {
    TypV2Utils* const utils = utils_.Of(cell.creator_);
    if (utils == nullptr) return kNoObject;
    if (structure_ == nullptr) return block::kNoStructure;
    if (cell.xml_.HasBytes()) {
      const Result rc = structure_->addpj(cell.xml_.data(), nullptr, cell.xml_.length(), kTypeXmlFork);
      if (rc != kOk) return rc;
    }
    if (!cell.data_.HasBytes()) return kOk;
    if (cell.HasName(kTextName)) return structure_->addtexte(cell.data_.data(), cell.data_.length());
    if (cell.HasName(kAttachmentName)) return AddAttachment(cell, utils);
    return kOk;
  }

  Result AddAttachment(const TypV2BlockCell& cell, TypV2Utils* utils) {
    SecretArray<kFileNameMost + 1> name;
    std::memcpy(name.text(), kNameWithoutXml, sizeof kNameWithoutXml);
    if (cell.xml_.HasBytes()) {
      SecretCBuffer xml;
      if (!xml.Allocate(cell.xml_.length() + 1)) return kNoObject;
      std::memcpy(xml.data(), cell.xml_.data(), cell.xml_.length());
      if (Result rc = DecodeFileName(utils, xml.text(), &name); rc != kOk) return rc;
    }
    return structure_->addpj(cell.data_.data(), name.text(), cell.data_.length(), kTypeAttachment);
  }

  TypV1SimpleStruc* const structure_;
  Result rc_ = kOk;
  UtilsOfCells utils_;
};

int TypV2BlockCell::ExportBlockAsV1Struct(TypV1SimpleStruc* structure) const {
  return EntryPoint([&]() -> Result {
    V1Export exporter(structure);
    Walk(
        this, true, [&exporter](const TypV2BlockCell& cell) { return exporter.Enter(cell); },
        [&exporter](const TypV2BlockCell& cell) { return exporter.Leave(cell); });
    return exporter.rc();
  });
}

// ---- Tagged text ---------------------------------------------------------------------------------------

// Kept so: the result of each piece replaces that of the piece before. A piece that does not fit is left out;
// when a closing tag behind it fits, the export goes on as if nothing were missing. Only lack of memory or of
// an object stays, and ends the text.
class TypV2BlockCell::XmlExport {
 public:
  XmlExport(char* out, long long* position, long long capacity, long flags)
      : out_(out), position_(position), capacity_(capacity), with_data_((flags & kWithData) != 0) {}

  bool Enter(TypV2BlockCell& cell) {
    utils_at_hand_ = utils_.Of(cell.creator_);
    Tag("<", cell.PrintedName());
    const bool with_xml = cell.xml_.HasBytes();
    const bool as_one_text = with_data_ && cell.HasName(kTextName);
    if (rc_ == kOk && with_xml && !as_one_text) AppendXml(&cell.xml_);
    if (rc_ == kOk && cell.data_.HasBytes()) {
      Append("<DATA>");
      if (with_data_ && with_xml) {
        if (as_one_text) {
          AppendDataAndXml(cell.data_, &cell.xml_);
        } else {
          AppendBase64(cell.data_.data(), cell.data_.length());
        }
      }
      Append("</DATA>");
    }
    return rc_ == kOk;
  }

  bool Leave(TypV2BlockCell& cell) {
    utils_at_hand_ = utils_.Of(cell.creator_);
    Tag("</", cell.PrintedName());
    return rc_ == kOk;
  }

  Result rc() const { return rc_; }

 private:
  void Append(std::string_view piece) {
    if (rc_ == kNoObject) return;
    rc_ = utils_at_hand_ == nullptr
              ? kNoObject
              : utils_at_hand_->Concatenate(out_, piece.data(), static_cast<long long>(piece.size()),
                                            position_, capacity_);
  }

  void Tag(std::string_view opening, std::string_view name) {
    Append(opening);
    Append(name);
    Append(">");
  }

  void AppendXml(Fork* xml) {
    Append("<XML>");
    utils_at_hand_->Convert0Ato0D(xml->data(), xml->length());
    Append({AsText(xml->data()), xml->length()});
    Append("</XML>");
  }

  // By the rule of Concatenate, but encoded where it is to stand: the text can be large, and is not to be
  // written twice.
  void AppendBase64(const unsigned char* bytes, std::size_t count) {
    if (rc_ == kNoObject) return;
    rc_ = utils::kDoesNotFit;
    if (*position_ >= capacity_) return;
    auto room = static_cast<std::size_t>(capacity_ - *position_);
    auto* const here = reinterpret_cast<unsigned char*>(out_ + *position_);
    if (base64_encode(here, &room, bytes, count) != 0) return;
    *position_ += static_cast<long long>(room);
    rc_ = kOk;
  }

  // Data and XML as texts, each up to its first zero byte.
  void AppendDataAndXml(const Fork& data, Fork* xml) {
    utils_at_hand_->Convert0Ato0D(xml->data(), xml->length());
    const std::size_t data_length = ::strnlen(AsText(data.data()), data.length());
    const std::size_t xml_length = ::strnlen(AsText(xml->data()), xml->length());
    SecretCBuffer text;
    if (!text.Allocate(data_length + kTextSeparator.size() + xml_length)) {
      rc_ = kNoObject;
      return;
    }
    unsigned char* end = text.data();
    std::memcpy(end, data.data(), data_length);
    end += data_length;
    std::memcpy(end, kTextSeparator.data(), kTextSeparator.size());
    end += kTextSeparator.size();
    std::memcpy(end, xml->data(), xml_length);
    AppendBase64(text.data(), text.size());
  }

  char* const out_;
  long long* const position_;
  const long long capacity_;
  const bool with_data_;
  TypV2Utils* utils_at_hand_ = nullptr;
  Result rc_ = kOk;
  UtilsOfCells utils_;
};

int TypV2BlockCell::ExportBlockAsXML(char* out, long long* position, long long capacity, long flags) {
  return EntryPoint([&]() -> Result {
    XmlExport exporter(out, position, capacity, flags);
    Walk(
        this, true, [&exporter](TypV2BlockCell& cell) { return exporter.Enter(cell); },
        [&exporter](TypV2BlockCell& cell) { return exporter.Leave(cell); });
    return exporter.rc();
  });
}
