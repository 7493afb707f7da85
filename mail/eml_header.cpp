// The header block of a mail, out of the routing XML.
#include <optional>
#include <string_view>

#include <kestrune/kestrune.h>
#include "core/entry_point.h"
#include "core/light_xml.h"
#include "core/owned.h"
#include "kestrune_settings.h"
#include "mail/eml.h"
#include "mail/text_rewriting.h"

namespace kestrune::mail {

namespace {

constexpr std::size_t kMailDateBytes = 200;
constexpr std::string_view kOnePerLine = ",\r\n ";  // as limiteemails folds a list

// Recipient lists may be large: their values are used where they stand.
std::optional<std::string_view> FindValue(std::string_view xml, std::string_view tag) {
  const auto element = FindElement(xml, tag);
  return element ? std::optional(element->value) : std::nullopt;
}

// Writes header lines out of a routing record.
class HeaderWriter {
 public:
  HeaderWriter(std::string_view record, TextBuffer* out) : record_(record), out_(out) {}

  // A line of an element, also when there is none. CR and LF are taken out of the value: it starts no
  // header line, and no part, of its own.
  bool AppendLine(std::string_view before, const char* tag, std::string_view behind) {
    const auto value = FindValue(record_, tag);
    out_->Append(before);
    AppendWithoutLineEnds(value.value_or(""), out_);
    out_->Append(behind);
    out_->Append(kLineEnd);
    return value.has_value();
  }

  // A line of an address list, rewritten for the gateway. An empty list leaves out the line, unless that
  // is wanted.
  Result AppendAddresses(std::string_view before, const char* tag, std::string_view separator, bool wanted) {
    std::string_view list = FindValue(record_, tag).value_or("");
    TextBuffer bare;  // hardly ever needed
    if (list.find_first_of(kLineEnd) != std::string_view::npos) {
      AppendWithoutLineEnds(list, &bare);
      list = bare.view();
    }
    const std::size_t line = out_->size();
    out_->Append(before);
    const std::size_t begin = out_->size();
    if (const Result rc = AppendGatewayAddresses(list, separator, out_); rc != kOk) return rc;
    if (out_->size() != begin || wanted) {
      out_->Append(kLineEnd);
    } else {
      out_->Truncate(line);
    }
    return kOk;
  }

  // Only numbers come out of the date, whatever it holds.
  void AppendDate() {
    TextBuffer terminated;
    terminated.Append(FindValue(record_, "TE").value_or(""));
    SecretArray<kMailDateBytes> date;
    if (convertkestrunesqldatetoemldate(terminated.c_str(), date.text()) != kOk) return;
    out_->Append("Date: ");
    out_->Append(date.text());
    out_->Append(kLineEnd);
  }

 private:
  std::string_view record_;
  TextBuffer* out_;
};

Result AppendLines(std::string_view record, TextBuffer* header) {
  HeaderWriter lines(record, header);
  lines.AppendLine("From: ", "F", settings::kGatewayDomain);
  if (const Result rc = lines.AppendAddresses("To: ", "D", kOnePerLine, true); rc != kOk) return rc;
  if (const Result rc = lines.AppendAddresses("Cc: ", "CC", kOnePerLine, false); rc != kOk) return rc;
  lines.AppendDate();
  lines.AppendLine("Subject: =?utf-8?B?", "S", "?=");  // the sender has encoded it already
  if (const Result rc = lines.AppendAddresses("Reply-To: ", "R", kAddressSeparator, false); rc != kOk)
    return rc;
  // Kept so: of all elements this one alone is indispensable.
  return lines.AppendLine("X-KestruneV2MessageID: ", "I", "") ? kOk : utils::kTagMissing;
}

}  // namespace

Result AppendHeader(std::string_view routing, TextBuffer* out) {
  const auto record = FindValue(routing, "M");
  if (!record) return utils::kTagMissing;
  TextBuffer header;
  if (const Result rc = AppendLines(*record, &header); rc != kOk) return rc;
  AppendFolded(header.view(), kContinuation, out);
  return kOk;
}

}  // namespace kestrune::mail

using namespace kestrune;

int getHeaderMimeFromRoutXML(const char* xml, char** header) {
  if (xml == nullptr) return argument::kNoInput;
  if (header == nullptr) return argument::kNoOutput;
  *header = nullptr;
  return EntryPoint([&]() -> Result {
    mail::TextBuffer folded;
    if (const Result rc = mail::AppendHeader(xml, &folded); rc != kOk) return rc;
    *header = folded.release();
    return kOk;
  });
}
