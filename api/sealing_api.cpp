// The entry points that seal a message.
#include <array>
#include <cstdio>
#include <cstring>

#include <kestrune/kestrune.h>
#include "api/message_call.h"
#include "core/entry_point.h"
#include "core/file_ref.h"
#include "core/limits.h"
#include "core/scrub.h"
#include "core/trace.h"
#include "core/utils.h"
#include "envelope/letter.h"

using namespace kestrune;

namespace {

constexpr std::size_t kTerminatorBytes = 1;

using Identifier = std::array<char, kMessageIdentifierBytes>;

void TellNames(const Trace& trace, const Letter& letter) {
  trace.Print("username==%s\n", Shown(letter.key_name));
  trace.Print("usernamesign==%s\n", Shown(letter.sender));
  trace.Print("inputpjfiles==%s\n", Shown(letter.attachments));
}

Result Seal(MessageCall* call, const Letter& letter, CBuffer* sealed, Identifier* identifier,
            const Trace& trace) {
  const Result rc = sealed->Receive([&](unsigned char** block, unsigned long long* length) {
    return LetterSlots(call->envelope()).CrypterSigner(letter, block, length, identifier->data());
  });
  trace.Print("CrypterSigner==%d\n", rc);
  if (rc == kOk) trace.Print("messageid==%s\n", identifier->data());
  return rc;
}

// Kept so: what the writing itself returned is not looked at, the closing tells.
Result WriteSealed(TypV2InstanceCreator* creator, const char* path, const CBuffer& sealed) {
  Owned<TypV2FileRef> file(creator->newTypV2FileRef());
  Result rc = file.Init();
  if (rc == kOk) rc = file->SetFileName(path);
  if (rc == kOk) rc = file->OpenDF(kCreateOrEmpty);
  if (rc != kOk) return rc;
  file->Write(sealed.data(), sealed.size());
  return file->CloseDF();
}

// The three outputs of Api2CrypterMem.
struct MemOutputs {
  unsigned char** block;
  unsigned long long* length;
  char* message_id;

  void Clear() const {
    if (block != nullptr) *block = nullptr;
    if (length != nullptr) *length = 0;
    if (message_id != nullptr) *message_id = 0;
  }
};

// In the order of the arguments, the first failure wins.
Result Check(const Letter& letter, const char* password, const char* folder, const MemOutputs& out) {
  for (const char* required : {letter.text, letter.attachments, letter.key_name, letter.sender, password}) {
    if (required == nullptr) return argument::kNoInput;
  }
  if (!IsShorterThan(password, limits::kPasswordOfMessage + 1)) return message::kPasswordTooLong;
  // Kept so: another code than for the password before. A missing one is refused by the sealing.
  if (letter.signing_password != nullptr &&
      !IsShorterThan(letter.signing_password, limits::kPasswordOfMessage + 1))
    return argument::kNoInput;
  if (folder == nullptr) return argument::kNoInput;
  for (const char* required : {letter.to, letter.cc, letter.bcc, letter.reply_to}) {
    if (required == nullptr) return message::kNoRecipientText;
  }
  if (letter.subject == nullptr) return envelope::kNoSubject;
  if (letter.te == nullptr) return message::kNoDateText;
  if (out.block == nullptr) return argument::kNoOutput;
  if (out.length == nullptr) return argument::kNoLengthOutput;
  return out.message_id == nullptr ? message::kNoIdentifierOutput : kOk;
}

}  // namespace

long Api2Crypterfile(const char* textFile, const char* attachmentFiles, const char* userName,
                     const char* signName, const char* hexPassword, char* signPassword, const char* folder,
                     const char* to, const char* cc, const char* bcc, const char* replyTo,
                     const char* subject, const char* dateTime, const char* readyRecipients,
                     const char* outputFile, char* messageId, long verbose) {
  if (messageId != nullptr) *messageId = 0;
  Letter letter{.key_name = userName,
                .hex_password = hexPassword,
                .sender = signName,
                .signing_password = signPassword,
                .to = to,
                .cc = cc,
                .bcc = bcc,
                .reply_to = replyTo,
                .subject = subject,
                .te = dateTime,
                .ready_recipients = readyRecipients,
                .attachments = attachmentFiles};
  return EntryPoint([&]() -> long {
    const Trace trace = TraceWhenOne(verbose);
    MessageCall call;
    if (!call.is_made()) return message::kNothingDone;
    if (const Result rc = call.Init(folder); rc != kOk) return rc;
    CBuffer text;
    const ScrubAtEnd scrub(text, Scrub::kAllButTerminator);
    // Deliberate: a text that cannot be read is no text, and the sealing decides what that means. One that is
    // there and found no memory would be missing from a message that is told as sealed.
    const Result read = ReadWholeFile(call.creator(), textFile, kTerminatorBytes, &text);
    if (read == kNoObject) return read;
    letter.text = text.text();
    if (text) trace.Print("inptextlen==%d\n", static_cast<int>(text.size() - kTerminatorBytes));
    TellNames(trace, letter);
    CBuffer sealed;
    Identifier identifier{};
    if (const Result rc = Seal(&call, letter, &sealed, &identifier, trace); rc != kOk) return rc;
    trace.Print("outputlen==%d\n", static_cast<int>(sealed.size()));
    trace.Print("outputfile==%s\n", Shown(outputFile));
    if (messageId != nullptr) std::strcpy(messageId, identifier.data());
    return WriteSealed(call.creator(), outputFile, sealed);
  });
}

long Api2CrypterMem(const char* text, const char* attachmentFiles, const char* userName, const char* signName,
                    const char* password, char* signPassword, const char* folder, const char* to,
                    const char* cc, const char* bcc, const char* replyTo, const char* subject,
                    const char* dateTime, unsigned char** block, unsigned long long* length, char* messageId,
                    long verbose) {
  Letter letter{.key_name = userName,
                .sender = signName,
                .signing_password = signPassword,
                .to = to,
                .cc = cc,
                .bcc = bcc,
                .reply_to = replyTo,
                .subject = subject,
                .te = dateTime,
                .ready_recipients = "",
                .text = text,
                .attachments = attachmentFiles};
  const MemOutputs out{.block = block, .length = length, .message_id = messageId};
  out.Clear();
  if (const Result rc = Check(letter, password, folder, out); rc != kOk) return rc;
  return EntryPoint([&]() -> long {
    const Trace trace = TraceWhenOne(verbose);
    MessageCall call;
    if (const Result rc = call.Init(folder); rc != kOk) return rc;
    SecretArray<limits::kHexPassword + 1> hex_password;
    // Deliberate: a password that gives no key is found by the sealing.
    (void)BuildHexPassword(reinterpret_cast<const unsigned char*>(password), hex_password.data());
    letter.hex_password = hex_password.text();
    TellNames(trace, letter);
    Identifier identifier{};
    CBuffer sealed;
    if (const Result rc = Seal(&call, letter, &sealed, &identifier, trace); rc != kOk) return rc;
    std::strcpy(messageId, identifier.data());
    *length = sealed.size();
    *block = sealed.release();
    return kOk;
  });
}
