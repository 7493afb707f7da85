// The entry points that seal a message.
#include <array>
#include <cstdio>
#include <cstring>

#include <kestrune/kestrune.h>
#include "api/message_call.h"
#include "core/entry_point.h"
#include "core/file_ref.h"
#include "core/utils.h"

using namespace kestrune;

namespace {

constexpr std::size_t kPasswordLimit = 65;
constexpr std::size_t kHexPasswordBytes = 65;
constexpr std::size_t kTerminatorBytes = 1;

using Identifier = std::array<char, kMessageIdentifierBytes>;

void PrintNames(const char* user_name, const char* sign_name, const char* attachment_files) {
  std::printf("username==%s\n", Shown(user_name));
  std::printf("usernamesign==%s\n", Shown(sign_name));
  std::printf("inputpjfiles==%s\n", Shown(attachment_files));
}

// Deliberate: what the writing itself returned is not looked at, the closing tells.
Result WriteSealed(TypV2InstanceCreator* creator, const char* path, const CBuffer& sealed) {
  Owned<TypV2FileRef> file(creator->newTypV2FileRef());
  Result rc = file.Init();
  if (rc == kOk) rc = file->SetFileName(path);
  if (rc == kOk) rc = file->OpenDF(kCreateOrEmpty);
  if (rc != kOk) return rc;
  file->Write(sealed.data(), sealed.size());
  return file->CloseDF();
}

struct MemArguments {
  const char *text, *attachment_files, *user_name, *sign_name, *password, *sign_password, *folder;
  const char *to, *cc, *bcc, *reply_to, *subject, *date_time;
  unsigned char** block;
  unsigned long long* length;
  char* message_id;
};

// In the order of the arguments, the first failure wins.
Result Check(const MemArguments& in) {
  for (const char* required : {in.text, in.attachment_files, in.user_name, in.sign_name, in.password}) {
    if (required == nullptr) return argument::kNoInput;
  }
  if (!IsShorterThan(in.password, kPasswordLimit)) return message::kPasswordTooLong;
  // Deliberate: another code than for the password before. A missing one is refused by the sealing.
  if (in.sign_password != nullptr && !IsShorterThan(in.sign_password, kPasswordLimit))
    return argument::kNoInput;
  if (in.folder == nullptr) return argument::kNoInput;
  for (const char* required : {in.to, in.cc, in.bcc, in.reply_to}) {
    if (required == nullptr) return message::kNoRecipientText;
  }
  if (in.subject == nullptr) return envelope::kNoSubject;
  if (in.date_time == nullptr) return message::kNoDateText;
  if (in.block == nullptr) return argument::kNoOutput;
  if (in.length == nullptr) return argument::kNoLengthOutput;
  return in.message_id == nullptr ? message::kNoIdentifierOutput : kOk;
}

}  // namespace

long Api2Crypterfile(const char* textFile, const char* attachmentFiles, const char* userName,
                     const char* signName, const char* hexPassword, char* signPassword, const char* folder,
                     const char* to, const char* cc, const char* bcc, const char* replyTo,
                     const char* subject, const char* dateTime, const char* readyRecipients,
                     const char* outputFile, char* messageId, long verbose) {
  if (messageId != nullptr) *messageId = 0;
  return EntryPoint([&]() -> long {
    MessageCall call;
    if (!call.is_made()) return message::kNothingDone;
    if (const Result rc = call.Init(folder); rc != kOk) return rc;
    CBuffer text;
    const ScrubAtEnd scrub(text, kTerminatorBytes);
    // Deliberate: a text that cannot be read is no text, and the sealing decides what that means.
    (void)ReadWholeFile(call.creator(), textFile, kTerminatorBytes, &text);
    if (IsVerbose(verbose)) {
      if (text) std::printf("inptextlen==%d\n", static_cast<int>(text.size() - kTerminatorBytes));
      PrintNames(userName, signName, attachmentFiles);
    }
    CBuffer sealed;
    Identifier identifier{};
    const Result rc = sealed.Receive([&](unsigned char** block, unsigned long long* length) {
      return call.envelope()->CrypterSigner(userName, hexPassword, signName, signPassword, to, cc, bcc,
                                            replyTo, subject, dateTime, readyRecipients, text.text(),
                                            attachmentFiles, nullptr, block, length, identifier.data());
    });
    if (IsVerbose(verbose)) std::printf("CrypterSigner==%d\n", rc);
    if (rc != kOk) return rc;
    if (IsVerbose(verbose)) {
      std::printf("messageid==%s\n", identifier.data());
      std::printf("outputlen==%d\n", static_cast<int>(sealed.size()));
      std::printf("outputfile==%s\n", Shown(outputFile));
    }
    if (messageId != nullptr) std::strcpy(messageId, identifier.data());
    return WriteSealed(call.creator(), outputFile, sealed);
  });
}

long Api2CrypterMem(const char* text, const char* attachmentFiles, const char* userName, const char* signName,
                    const char* password, char* signPassword, const char* folder, const char* to,
                    const char* cc, const char* bcc, const char* replyTo, const char* subject,
                    const char* dateTime, unsigned char** block, unsigned long long* length, char* messageId,
                    long verbose) {
  const Result checked = Check({text, attachmentFiles, userName, signName, password, signPassword, folder, to,
                                cc, bcc, replyTo, subject, dateTime, block, length, messageId});
  if (checked != kOk) {
    if (block != nullptr) *block = nullptr;
    if (length != nullptr) *length = 0;
    if (messageId != nullptr) *messageId = 0;
    return checked;
  }
  *block = nullptr;
  *length = 0;
  *messageId = 0;
  return EntryPoint([&]() -> long {
    MessageCall call;
    if (const Result rc = call.Init(folder); rc != kOk) return rc;
    SecretArray<kHexPasswordBytes> hex_password;
    // Deliberate: a password that gives no key is found by the sealing.
    (void)BuildHexPassword(reinterpret_cast<const unsigned char*>(password), hex_password.data());
    if (IsVerbose(verbose)) PrintNames(userName, signName, attachmentFiles);
    Identifier identifier{};
    const Result rc = call.envelope()->CrypterSigner(
        userName, hex_password.text(), signName, signPassword, to, cc, bcc, replyTo, subject, dateTime, "",
        text, attachmentFiles, nullptr, block, length, identifier.data());
    if (IsVerbose(verbose)) std::printf("CrypterSigner==%d\n", rc);
    if (rc != kOk) return rc;
    if (IsVerbose(verbose)) std::printf("messageid==%s\n", identifier.data());
    std::strcpy(messageId, identifier.data());
    return kOk;
  });
}
