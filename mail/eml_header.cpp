// The header block of a mail, out of the routing XML.
#include <cstring>

#include "api/kestrune.h"
#include "core/entry_point.h"
#include "kestrune_settings.h"
#include "mail/eml.h"
#include "mail/text_forms.h"

namespace kestrune::mail {

namespace {

constexpr std::size_t kMailDateBytes = 200;
constexpr unsigned long long kAnyLength = 0;

// Reads the elements of a routing record.
class RoutingReader {
 public:
  // Replaces the routing XML by what stands inside its <M> element.
  Result Open(TextBuffer* routing) {
    if (const Result rc = utils_.Init(); rc != kOk) return rc;
    record_ = routing;
    if (record_->empty()) return utils::kTagMissing;
    // The reader allows a value to be read out of the text that it replaces.
    const Result rc = Extract("M", record_->data());
    if (rc == kOk) record_->Truncate(std::strlen(record_->c_str()));
    return rc;
  }

  // The value of an element without its CR and LF, so that none starts a header line or a part of its own.
  // Empty when it is not there.
  Result Read(const char* tag, TextBuffer* value) {
    const Result rc = ReadUnchanged(tag, value);
    value->Truncate(RemoveLineEnds(value->data(), value->size()));
    return rc;
  }

  Result ReadUnchanged(const char* tag, TextBuffer* value) {
    value->Clear();
    // A value is shorter than the record; the reader terminates it.
    const Result rc = Extract(tag, value->Extend(record_->size()));
    value->Truncate(rc == kOk ? std::strlen(value->c_str()) : 0);
    return rc;
  }

  // The same of an address list, rewritten for the gateway.
  Result ReadAddresses(const char* tag, TextBuffer* addresses) {
    TextBuffer list;
    (void)Read(tag, &list);  // a list that is not there is an empty one
    addresses->Clear();
    return AppendGatewayAddresses(list.view(), addresses);
  }

 private:
  Result Extract(const char* tag, char* out) {
    return utils_->ExtractSmallValueFromXMLLight(record_->c_str(), tag, 1, out, 0, kAnyLength);
  }

  TypV2InstanceCreatorUnix creator_;
  Owned<TypV2Utils> utils_{creator_.newTypV2Utils()};
  TextBuffer* record_ = nullptr;
};

void AppendLine(std::string_view name, std::string_view value, TextBuffer* header) {
  header->Append(name);
  header->Append(value);
  header->Append(kLineEnd);
}

Result AppendRecipients(RoutingReader& reader, TextBuffer* header) {
  TextBuffer addresses;
  if (const Result rc = reader.ReadAddresses("D", &addresses); rc != kOk) return rc;
  header->Append("To: ");
  AppendOneAddressPerLine(addresses.view(), header);
  header->Append(kLineEnd);

  if (const Result rc = reader.ReadAddresses("CC", &addresses); rc != kOk) return rc;
  if (addresses.empty()) return kOk;
  header->Append("Cc: ");
  AppendOneAddressPerLine(addresses.view(), header);
  header->Append(kLineEnd);
  return kOk;
}

// Only numbers come out of the date, whatever it holds.
void AppendDate(RoutingReader& reader, TextBuffer* header) {
  TextBuffer value;
  (void)reader.ReadUnchanged("TE", &value);
  SecretArray<kMailDateBytes> date;
  if (convertkestrunesqldatetoemldate(value.c_str(), date.text()) != kOk) return;
  AppendLine("Date: ", date.text(), header);
}

Result AppendLines(RoutingReader& reader, TextBuffer* header) {
  TextBuffer value;
  (void)reader.Read("F", &value);  // an element that is not there leaves its line without a value
  header->Append("From: ");
  header->Append(value.view());
  AppendLine(settings::kGatewayDomain, "", header);

  if (const Result rc = AppendRecipients(reader, header); rc != kOk) return rc;
  AppendDate(reader, header);

  (void)reader.Read("S", &value);  // the sender has encoded it already
  header->Append("Subject: =?utf-8?B?");
  AppendLine(value.view(), "?=", header);

  TextBuffer reply_to;
  if (const Result rc = reader.ReadAddresses("R", &reply_to); rc != kOk) return rc;
  if (!reply_to.empty()) AppendLine("Reply-To: ", reply_to.view(), header);

  // Deliberate: of all elements this one alone is indispensable.
  if (const Result rc = reader.Read("I", &value); rc != kOk) return rc;
  AppendLine("X-KestruneV2MessageID: ", value.view(), header);
  return kOk;
}

}  // namespace

Result AppendHeader(TextBuffer* routing, TextBuffer* out) {
  TextBuffer header;
  {
    RoutingReader reader;
    if (const Result rc = reader.Open(routing); rc != kOk) return rc;
    header.Reserve(routing->size());
    if (const Result rc = AppendLines(reader, &header); rc != kOk) return rc;
  }
  routing->Clear();
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
    mail::TextBuffer routing;
    routing.Append(xml);
    mail::TextBuffer folded;
    if (const Result rc = mail::AppendHeader(&routing, &folded); rc != kOk) return rc;
    *header = folded.Release();
    return kOk;
  });
}
