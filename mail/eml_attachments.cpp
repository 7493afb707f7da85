// The attachment parts of a mail.
#include <algorithm>
#include <cstring>

#include <kestrune/kestrune.h>
#include <span>
#include <string_view>
#include "core/entry_point.h"
#include "core/light_xml.h"
#include "core/owned.h"
#include "crypto/classic.h"
#include "mail/block_visit.h"
#include "mail/eml.h"
#include "mail/text_rewriting.h"

namespace kestrune::mail {

namespace {

constexpr std::size_t kMostNameCharacters = 600;  // of an attachment's <AT> element
constexpr std::size_t kBase64LineCharacters = 64;
constexpr std::size_t kBytesAtOnce =
    std::size_t{48} * 1024;  // a multiple of 3, so that no padding falls inside

constexpr std::size_t Base64Length(std::size_t bytes) {
  return (bytes + 2) / 3 * 4;
}

constexpr std::size_t Base64LinesLength(std::size_t bytes) {
  const std::size_t characters = Base64Length(bytes);
  return characters + (characters - 1) / kBase64LineCharacters * kLineEnd.size();
}

// Breaks a stream of Base64 into lines.
class LineBreaker {
 public:
  explicit LineBreaker(char* to) : to_(to) {}

  void Put(std::string_view characters) {
    while (!characters.empty()) {
      const std::size_t count = std::min(room_, characters.size());
      PutBare(characters.substr(0, count));
      characters.remove_prefix(count);
      room_ -= count;
      if (room_ != 0) continue;
      PutBare(kLineEnd);
      room_ = kBase64LineCharacters;
    }
  }

 private:
  void PutBare(std::string_view text) {
    std::memcpy(to_, text.data(), text.size());
    to_ += text.size();
  }

  char* to_;
  std::size_t room_ = kBase64LineCharacters + 1;  // kept so: the first line has one more
};

Result AppendBase64Lines(std::span<const unsigned char> data, TextBuffer* out) {
  SecretCBuffer encoded;
  const std::size_t at_once = std::min(data.size(), kBytesAtOnce);
  if (!encoded.Allocate(Base64Length(at_once) + 1)) return kNoObject;
  LineBreaker lines(out->Extend(Base64LinesLength(data.size())));
  while (!data.empty()) {
    const auto piece = data.first(std::min(data.size(), at_once));
    std::size_t length = encoded.size();
    if (base64_encode(encoded.data(), &length, piece.data(), piece.size()) != 0) return kBase64;
    lines.Put({encoded.text(), length});
    data = data.subspan(piece.size());
  }
  return kOk;
}

std::span<const unsigned char> AttachedData(const TypV2BlockCell& cell) {
  if (!HasBlockName(cell, "PJ") || cell.GetDataForkPtr() == nullptr) return {};
  return {cell.GetDataForkPtr(), static_cast<std::size_t>(cell.GetDataForkLen())};
}

void AppendNameLine(std::string_view field, std::string_view name, std::string_view end, TextBuffer* out) {
  TextBuffer line;
  line.Append(field);
  line.Append("\"=?utf-8?B?");
  line.Append(name);
  line.Append("?=\"");
  line.Append(end);
  AppendFolded(line.view(), kContinuation, out);
}

// The name is Base64 already; one that is missing or too long is left empty.
Result AppendName(const TypV2BlockCell& cell, TextBuffer* out) {
  TextBuffer xml;
  if (const Result rc = CopyXml(cell, &xml); rc != kOk) return rc;
  const auto record = FindElement(xml.view(), "AT");
  if (!record || record->value.size() > kMostNameCharacters) return kOk;
  if (const auto name = FindElement(record->value, "N")) AppendWithoutLineEnds(name->value, out);
  return kOk;
}

}  // namespace

Result CopyXml(const TypV2BlockCell& cell, TextBuffer* xml) {
  char* copy = nullptr;
  if (const Result rc = cell.GetXMLForkCopy(&copy); rc != kOk) return rc;
  if (copy != nullptr) xml->Adopt(copy, static_cast<std::size_t>(cell.GetXMLForkLen()) + 1);
  return kOk;
}

Result AttachmentParts::Measure(const TypV2BlockCell* tree, std::size_t* characters) {
  *characters = 0;
  return VisitBlocks(tree, [&](const TypV2BlockCell& cell) -> Result {
    const auto data = AttachedData(cell);
    if (data.empty()) return kOk;
    if (const Result rc = WriteHead(cell); rc != kOk) return rc;
    *characters += head_.size() + Base64LinesLength(data.size()) + kLineEnd.size();
    return kOk;
  });
}

Result AttachmentParts::Append(const TypV2BlockCell* tree, TextBuffer* out) {
  return VisitBlocks(tree, [&](const TypV2BlockCell& cell) -> Result {
    const auto data = AttachedData(cell);
    if (data.empty()) return kOk;
    if (const Result rc = WriteHead(cell); rc != kOk) return rc;
    out->Append(head_.view());
    if (const Result rc = AppendBase64Lines(data, out); rc != kOk) return rc;
    out->Append(kLineEnd);
    return kOk;
  });
}

Result AppendAttachmentNames(const TypV2BlockCell* tree, TextBuffer* out) {
  return VisitBlocks(tree, [&](const TypV2BlockCell& cell) -> Result {
    if (AttachedData(cell).empty()) return kOk;
    if (const Result rc = AppendName(cell, out); rc != kOk) return rc;
    out->Append(kLineEnd);
    return kOk;
  });
}

Result AttachmentParts::WriteHead(const TypV2BlockCell& cell) {
  TextBuffer name;
  if (const Result rc = AppendName(cell, &name); rc != kOk) return rc;
  head_.Truncate(0);
  head_.Append("\r\n--");
  head_.Append(boundary_);
  head_.Append("\r\nContent-Transfer-Encoding: base64\r\n");
  AppendNameLine("Content-Type: application/octet-stream; name=", name.view(), "\r\n", &head_);
  AppendNameLine("Content-Disposition: attachment; filename=", name.view(), "\r\n\r\n", &head_);
  return kOk;
}

}  // namespace kestrune::mail

using namespace kestrune;

int GetMimePJFromRedBlock(TypV2BlockCell* block, char* parts, const char* boundary) {
  if (block == nullptr) return mail::kNoTree;
  if (parts == nullptr) return mail::kNoEmlOutput;
  if (boundary == nullptr) return argument::kNoInput;
  return EntryPoint([&]() -> Result {
    mail::AttachmentParts attachments(boundary);
    mail::TextBuffer made;
    if (const Result rc = attachments.Append(block, &made); rc != kOk) return rc;
    std::strcat(parts, made.c_str());
    return kOk;
  });
}
