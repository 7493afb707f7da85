// An opened message as an Internet mail message.
#include "mail/eml.h"

#include <cstring>

#include <kestrune/kestrune.h>
#include "core/entry_point.h"
#include "core/owned.h"
#include "mail/block_visit.h"
#include "mail/text_rewriting.h"

namespace kestrune::mail {

namespace {

constexpr std::size_t kBoundaryBytes = 36;
constexpr int kMostBoundaries = 100;  // a generator that draws always the same ends, too
constexpr std::string_view kBetweenTexts = "------- Autre section texte -----\n";

// A message without attachments
constexpr std::string_view kSingleHead =
    "MIME-Version: 1.0\r\n"
    "Content-Type: text/plain; charset=utf-8; format=flowed\r\n"
    "Content-Transfer-Encoding: quoted-printable\r\n"
    "\r\n";

// A message with attachments: the boundary stands between these pieces.
constexpr std::string_view kMultipartHead = "Content-Type: multipart/mixed; boundary=\"";
constexpr std::string_view kBehindBoundary =
    "\"\r\n"
    "MIME-Version: 1.0\r\n"
    "\r\n"
    "--";
// Kept so: "UTF8" here, "utf-8" above.
constexpr std::string_view kTextPartHead =
    "\r\n"
    "Content-Type: text/plain; charset=UTF8; format=flowed\r\n"
    "Content-Transfer-Encoding: quoted-printable\r\n"
    "\r\n";

void AppendMultipartHead(std::string_view boundary, TextBuffer* out) {
  out->Append(kMultipartHead);
  out->Append(boundary);
  out->Append(kBehindBoundary);
  out->Append(boundary);
  out->Append(kTextPartHead);
}

void AppendClosingBoundary(std::string_view boundary, TextBuffer* out) {
  out->Append("--");
  out->Append(boundary);
  out->Append("--\r\n");
}

// A message whose routing cannot be read goes without header block; lack of memory is a failure all the same.
Result AppendHeaderOf(const TypV2BlockCell& routing_block, TextBuffer* out) {
  TextBuffer routing;
  if (const Result rc = CopyXml(routing_block, &routing); rc != kOk) return rc;
  const Result rc = AppendHeader(routing.view(), out);
  return rc == kNoObject ? rc : kOk;
}

bool Holds(const TextBuffer& text, std::string_view boundary) {
  return text.view().find(boundary) != std::string_view::npos;
}

// Texts and names are the sender's, and what rand() draws can be foreseen: a text that held the boundary could
// carry parts of its own. (Base64 holds no dash.)
Result DrawAnotherWhileHeld(const TextBuffer& text, const TextBuffer& names, char* boundary) {
  for (int drawn = 1; Holds(text, boundary) || Holds(names, boundary); ++drawn) {
    if (drawn == kMostBoundaries) return kNoObject;
    GetMimeSeparator(boundary);
  }
  return kOk;
}

// The whole message is measured before it is written, once and in its place: with its attachments it may be
// large, and everything in it is clear text.
Result ConvertTree(const TypV2BlockCell* red, char* boundary, char** eml) {
  const TypV2BlockCell* routing = red->FindSubBlock("ROUT");
  if (routing == nullptr) return kOk;
  *eml = nullptr;

  TextBuffer header;
  if (const Result rc = AppendHeaderOf(*routing, &header); rc != kOk) return rc;
  TextBuffer text;
  AppendTexts(red, false, &text);
  TextBuffer names;
  if (const Result rc = AppendAttachmentNames(red, &names); rc != kOk) return rc;
  if (const Result rc = DrawAnotherWhileHeld(text, names, boundary); rc != kOk) return rc;
  AttachmentParts attachments(boundary);
  std::size_t attached = 0;
  if (const Result rc = attachments.Measure(red, &attached); rc != kOk) return rc;

  const bool multipart = attached != 0;
  TextBuffer opening, closing;
  if (multipart) {
    AppendMultipartHead(boundary, &opening);
    AppendClosingBoundary(boundary, &closing);
  } else {
    opening.Append(kSingleHead);
  }
  const std::size_t encoded = QuotedPrintableLength(text.view());
  TextBuffer message;
  message.Reserve(header.size() + opening.size() + encoded + kLineEnd.size() + attached + closing.size());
  message.Append(header.view());
  message.Append(opening.view());
  WriteQuotedPrintable(text.view(), message.Extend(encoded));
  message.Append(kLineEnd);
  if (const Result rc = attachments.Append(red, &message); rc != kOk) return rc;
  message.Append(closing.view());
  *eml = message.release();
  return kOk;
}

}  // namespace

void AppendTexts(const TypV2BlockCell* tree, bool follows_text, TextBuffer* out) {
  (void)VisitBlocks(tree, [&](const TypV2BlockCell& cell) -> Result {
    if (!HasBlockName(cell, "TEXT")) return kOk;
    const char* text = reinterpret_cast<const char*>(cell.GetDataForkPtr());
    const auto length = static_cast<std::size_t>(cell.GetDataForkLen());
    if (text == nullptr || length == 0) return kOk;
    if (follows_text || !out->empty()) out->Append(kBetweenTexts);
    out->Append({text, ::strnlen(text, length)});  // a text ends with its first zero byte
    return kOk;
  });
}

}  // namespace kestrune::mail

using namespace kestrune;

int GetFlatTextFromRedBlock(TypV2BlockCell* block, char* text) {
  if (block == nullptr) return mail::kNoTree;
  if (text == nullptr) return mail::kNoEmlOutput;
  return EntryPoint([&]() -> Result {
    mail::TextBuffer appended;
    mail::AppendTexts(block, *text != 0, &appended);
    std::strcat(text, appended.c_str());
    return kOk;
  });
}

int Api2ConvertRedBlockToEml(TypV2BlockCell* red, char** eml) {
  SecretArray<mail::kBoundaryBytes> boundary;
  GetMimeSeparator(boundary.text());
  if (red == nullptr) return mail::kNoTree;
  if (eml == nullptr) return mail::kNoEmlOutput;
  const Owned<TypV2BlockCell> tree = Adopted(red);
  return EntryPoint([&]() -> Result { return mail::ConvertTree(tree.get(), boundary.text(), eml); });
}
