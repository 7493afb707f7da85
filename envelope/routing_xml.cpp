// The routing XML and the message identifiers.
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "core/calendar.h"
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "envelope/crypto_interface.h"
#include "envelope/letter.h"
#include "envelope/own_class.h"
#include "sign/key_utils.h"

using namespace kestrune;

namespace {

constexpr long kSeparateLists = 0;
constexpr long kOneList = 1;
constexpr std::size_t kNumberBytes = 24;

// A list or text that is not given counts as an empty one.
std::string_view View(const char* text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

struct Recipients {
  std::string_view to, cc, bcc;

  explicit Recipients(const Letter& letter)
      : to(View(letter.to)), cc(View(letter.cc)), bcc(View(letter.bcc)) {}
  bool empty() const { return to.empty() && cc.empty() && bcc.empty(); }
};

void AppendJoined(std::string* xml, const Recipients& recipients) {
  const char* comma = "";
  for (const std::string_view list : {recipients.to, recipients.cc, recipients.bcc}) {
    if (list.empty()) continue;
    xml->append(comma).append(list);
    comma = ",";
  }
}

void AppendRecipients(std::string* xml, const Recipients& recipients, long merge) {
  xml->append("<D>");
  if (merge == kSeparateLists) {
    // bcc recipients are none of the other recipients' business.
    xml->append(recipients.to).append("</D><CC>").append(recipients.cc).append("</CC>");
  } else if (merge == kOneList) {
    AppendJoined(xml, recipients);
    xml->append("</D>");
  } else {
    // Kept so: the element stays open.
    xml->append(recipients.to);
    if (!recipients.cc.empty()) xml->append(",").append(recipients.cc);
  }
}

Result AppendBase64(std::string* xml, std::string_view text) {
  CBuffer base64;
  if (!base64.Allocate(2 * text.size() + 100)) return kNoObject;
  std::size_t characters = base64.size();
  if (base64_encode(base64.data(), &characters, reinterpret_cast<const unsigned char*>(text.data()),
                    text.size()) != 0) {
    return envelope::kBase64;
  }
  xml->append(base64.text(), characters);
  return kOk;
}

Result CopyOut(std::string_view text, char** out) {
  CBuffer copy;
  if (!copy.Allocate(text.size() + 1)) return kNoObject;
  std::memcpy(copy.data(), text.data(), text.size());
  *out = copy.release_text();
  return kOk;
}

// Values stand between the tags as they are.
Result Compose(const Letter& letter, const char* year, const char* identifier, long merge, char** xml) {
  const std::string_view ready = View(letter.ready_recipients);
  std::string text;
  text.append("<M><C>").append(View(letter.key_name)).append(".").append(year).append("</C>");
  if (ready.empty()) text.append("<F>").append(View(letter.sender)).append("</F>");
  text.append("<R>")
      .append(View(letter.reply_to == nullptr ? letter.sender : letter.reply_to))
      .append("</R>");
  text.append("<I>").append(View(identifier)).append("</I>");
  text.append("<TE>").append(View(letter.te)).append("</TE>");
  if (ready.empty()) {
    AppendRecipients(&text, Recipients(letter), merge);
  } else {
    text.append(ready);
  }
  text.append("<S>");
  if (const Result rc = AppendBase64(&text, View(letter.subject)); rc != kOk) return rc;
  text.append("</S></M>");
  return CopyOut(text, xml);
}

}  // namespace

void TypV2CryptoInterface::GetIDMessage(char* out, const char* sender, const char* /*to*/, const char* /*cc*/,
                                        const char* /*bcc*/, const char* /*subject*/) {
  if (out == nullptr) return;
  *out = 0;
  if (sender == nullptr) return;
  Owned<TypKeyUtils> key_utils(creator_->newTypKeyUtils());
  if (key_utils.Init(creator_) != kOk) return;
  char stamp[kTimeStampBytes] = {};
  key_utils->GetTimeStamp(stamp);
  std::snprintf(out, kMessageIdentifierBytes, "M%s[%ld].%s", sender, static_cast<long>(session_), stamp);
}

void TypV2CryptoInterfaceUnix::GetIDMessage(char* out, const char* sender, const char* to, const char* cc,
                                            const char* bcc, const char* subject) {
  if (out == nullptr) return;
  *out = 0;
  if (sender == nullptr) return;
  sha1_context context;
  sha1_starts(&context);
  const auto feed = [&context](std::string_view text) {
    sha1_update(&context, reinterpret_cast<const unsigned char*>(text.data()), text.size());
  };
  for (const char* text : {sender, to, cc, bcc, subject}) feed(View(text));
  const std::timespec now = CurrentTimeWithNanoseconds();
  char number[kNumberBytes];
  std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(now.tv_sec));
  feed(number);
  std::array<unsigned char, kSha1Bytes> digest;
  sha1_finish(&context, digest.data());
  utils()->Hexadecimalise(digest.data(), digest.size(), out);
  std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(now.tv_nsec));
  std::strcat(out, number);
}

int TypV2CryptoInterface::GetServiceXMLRoutage(char** xml, const char* key_name, const char* sender,
                                               const char* to, const char* cc, const char* bcc,
                                               const char* reply_to, const char* subject, const char* te,
                                               const char* ready_recipients) {
  *xml = nullptr;
  const Letter letter{.key_name = key_name,
                      .sender = sender,
                      .to = to,
                      .cc = cc,
                      .bcc = bcc,
                      .reply_to = reply_to,
                      .subject = subject,
                      .te = te,
                      .ready_recipients = ready_recipients};
  const LetterSlots slots(this);
  slots.GetIDMessage(letter, last_identifier_.data());
  // It has no result to tell by; our own identifiers are only empty where there was no memory for them. What a
  // platform's are is the platform's affair.
  const bool is_ours = IsExactly<TypV2CryptoInterface, TypV2CryptoInterfaceUnix>(*this);
  if (is_ours && sender != nullptr && last_identifier_[0] == 0) return kNoObject;
  return slots.Low_GetBasicServiceXML(letter, last_identifier_.data(), kSeparateLists, xml);
}

int TypV2CryptoInterface::GetBasicServiceXML(char** xml, const char* key_name, const char* sender,
                                             const char* to, const char* cc, const char* bcc,
                                             const char* reply_to, const char* subject, const char* te) {
  const Letter letter{.key_name = key_name,
                      .sender = sender,
                      .to = to,
                      .cc = cc,
                      .bcc = bcc,
                      .reply_to = reply_to,
                      .subject = subject,
                      .te = te,
                      .ready_recipients = ""};
  return LetterSlots(this).Low_GetBasicServiceXML(letter, last_identifier_.data(), kOneList, xml);
}

int TypV2CryptoInterface::Low_GetBasicServiceXML(char** xml, const char* key_name, const char* sender,
                                                 const char* to, const char* cc, const char* bcc,
                                                 const char* reply_to, const char* subject, const char* te,
                                                 const char* identifier, long merge,
                                                 const char* ready_recipients) {
  *xml = nullptr;
  const Letter letter{.key_name = key_name,
                      .sender = sender,
                      .to = to,
                      .cc = cc,
                      .bcc = bcc,
                      .reply_to = reply_to,
                      .subject = subject,
                      .te = te,
                      .ready_recipients = ready_recipients};
  if (Recipients(letter).empty()) return envelope::kNoRecipient;
  Owned<TypKeyUtils> key_utils(creator_->newTypKeyUtils());
  if (const Result rc = key_utils.Init(creator_); rc != kOk) return rc;
  std::array<char, kYearBytes> year{};
  key_utils->GetYearKestruneKey(year.data());
  return EntryPoint([&] { return Compose(letter, year.data(), identifier, merge, xml); });
}
