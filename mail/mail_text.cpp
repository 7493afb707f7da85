#include "mail/mail_text.h"

#include <cstring>

#include <kestrune/kestrune.h>
#include <string_view>
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/random.h"
#include "core/result.h"
#include "core/scrub.h"
#include "core/utils.h"
#include "mail/text_rewriting.h"

using namespace kestrune;
using mail::TextBuffer;

namespace {

constexpr std::size_t kBoundaryCharacters = 35;
constexpr int kLetters = 26;

// Replaces a text by its form in the caller's buffer, which is large enough.
template <class Form>
void RewriteInPlace(char* text, Form&& append_form) {
  if (text == nullptr) return;
  // Nobody is told when there is no memory; the text is untouched then.
  EntryPoint([&]() -> Result {
    TextBuffer form;
    append_form(std::string_view(text), &form);
    const ScrubAtEnd scrub(form, Scrub::kAll);
    std::memcpy(text, form.c_str(), form.size() + 1);
    return kOk;
  });
}

}  // namespace

int api2encodeQuotedPrintable(const char* text, unsigned long long length, char** out,
                              unsigned long long* outLength) {
  if (out == nullptr) return argument::kNoOutput;
  *out = nullptr;
  if (outLength == nullptr) return argument::kNoLengthOutput;
  *outLength = 0;
  if (text == nullptr && length != 0) return argument::kNoInput;
  return EntryPoint([&]() -> Result {
    const std::string_view input(text, length);
    TextBuffer encoded;
    mail::WriteQuotedPrintable(input, encoded.Extend(mail::QuotedPrintableLength(input)));
    *outLength = encoded.size();
    *out = encoded.release();
    return kOk;
  });
}

void api2chartoquotedhex(int byte, char* out) {
  if (out == nullptr) return;
  mail::WriteQuotedCode(static_cast<unsigned char>(byte), out);
  out[mail::kQuotedCodeCharacters] = 0;
}

void limite78(char* text) {
  RewriteInPlace(
      text, [](std::string_view from, TextBuffer* to) { mail::AppendFolded(from, mail::kContinuation, to); });
}

void limite78simple(char* text) {
  RewriteInPlace(text,
                 [](std::string_view from, TextBuffer* to) { mail::AppendFolded(from, mail::kLineEnd, to); });
}

void limiteemails(char* addresses) {
  RewriteInPlace(addresses, mail::AppendOneAddressPerLine);
}

void enleverlf(char* text) {
  RewriteInPlace(text, mail::AppendWithoutLineEnds);
}

void convertlftocrlf(char* text) {
  RewriteInPlace(text, mail::AppendWithCarriageReturns);
}

int convertaddressestomss(const char* addresses, char* out) {
  if (out == nullptr) return argument::kNoOutput;
  if (addresses == nullptr) {
    *out = 0;
    return argument::kNoInput;
  }
  const Result rc = EntryPoint([&]() -> Result {
    TextBuffer list;  // the two may be the same buffer
    if (const Result made = mail::AppendGatewayAddresses(addresses, mail::kAddressSeparator, &list);
        made != kOk)
      return made;
    std::memcpy(out, list.c_str(), list.size() + 1);
    return kOk;
  });
  if (rc != kOk) *out = 0;
  return rc;
}

int GetMimeSeparator(char* out) {
  if (out == nullptr) return argument::kNoInput;
  for (std::size_t i = 0; i < kBoundaryCharacters; ++i) {
    out[i] = static_cast<char>('A' + DrawRandom() % kLetters);
  }
  out[kBoundaryCharacters] = 0;
  return kOk;
}

int api2ExtractSmallValueFromXMLLight(const char* xml, const char* tag, unsigned long long n, char* out,
                                      unsigned long long start, unsigned long long max) {
  return EntryPoint([&]() -> Result {
    TypV2InstanceCreatorUnix creator;
    Owned<TypV2Utils> utils(creator.newTypV2Utils());
    if (!utils) return kOk;  // kept so: nothing is said when there is no toolbox
    if (const Result rc = utils.Init(); rc != kOk) return rc;
    return utils->ExtractSmallValueFromXMLLight(xml, tag, n, out, start, max);
  });
}
