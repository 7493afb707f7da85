// kestrune seal: a text and attachments become a transport block.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/input.h"
#include "cli/key_choice.h"
#include "cli/output.h"
#include "cli/pass_phrase.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "envelope/crypto_interface.h"
#include "sign/signature.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kMostAttachments = 99;
constexpr std::size_t kLargestAttachment = 1'000'000;
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kDateCharacters = 19;
constexpr char kSealing[] = "Api2CrypterMem";

struct Options {
  std::string text = kStandard;
  std::vector<std::string> to, cc, bcc, reply_to, attachments;
  std::string subject, date;
  std::string output = kStandard;
  bool force = false;
  SignerOption signer;
  UserOption user;
  PassPhrases pass_phrases;
};

struct Attachment {
  std::string name;
  Content content;
};

// The library's envelope leaves out a text or an attachment that cannot be signed, and what comes behind counts. Here
// nothing may be missing: what failed is remembered.
class WatchedSigner : public TypApiV2Signature {
 public:
  explicit WatchedSigner(Result* failed) : failed_(failed) {}
  int GetSignatureXMLLight(const unsigned char* data, std::uint32_t length, char* out, long mode) override {
    const Result rc = TypApiV2Signature::GetSignatureXMLLight(data, length, out, mode);
    if (rc != kOk) *failed_ = rc;
    return rc;
  }

 private:
  Result* const failed_;
};

class WatchingCreator : public TypV2InstanceCreatorUnix {
 public:
  TypApiV2Signature* newTypApiV2Signature() override { return new (std::nothrow) WatchedSigner(&failed_); }
  Result failed() const { return failed_; }

 private:
  Result failed_ = kOk;
};

// The library's envelope, with attachments that were read before: it would leave out what it cannot read.
class Envelope : public TypV2CryptoInterfaceUnix {
 public:
  explicit Envelope(const std::vector<Attachment>* attachments) : attachments_(attachments) {}

  // `path` is the attachment's number.
  int GetDF(TypApiV2Signature* signer, const char* path, unsigned char** data, unsigned long long* length,
            char* xml) override {
    std::size_t number = 0;
    std::from_chars(path, path + std::strlen(path), number);
    const Attachment& attachment = attachments_->at(number);
    SecretCBuffer copy;
    if (!copy.AllocateUncleared(attachment.content.size())) return kNoObject;
    std::memcpy(copy.data(), attachment.content.data(), attachment.content.size());
    const Result rc = Describe(signer, attachment, xml);
    if (rc != kOk) return rc;
    *length = copy.size();
    *data = copy.release();
    return kOk;
  }

 private:
  static Result Describe(TypApiV2Signature* signer, const Attachment& attachment, char* xml) {
    std::array<char, kSignatureXmlBytes> signature{};
    const Result rc = signer->GetSignatureXMLLight(attachment.content.data(),
                                                   static_cast<std::uint32_t>(attachment.content.size()),
                                                   signature.data(), 1);
    if (rc != kOk) return rc;
    std::array<unsigned char, 2 * kLongestName> base64{};
    std::size_t characters = base64.size();
    if (base64_encode(base64.data(), &characters,
                      reinterpret_cast<const unsigned char*>(attachment.name.data()),
                      attachment.name.size()) != 0) {
      return envelope::kBase64;
    }
    const int written =
        std::snprintf(xml, kAttachmentXmlBytes, "<AT><N>%.*s</N></AT>%s", static_cast<int>(characters),
                      reinterpret_cast<const char*>(base64.data()), signature.data());
    return written > 0 && static_cast<std::size_t>(written) < kAttachmentXmlBytes ? kOk : kNoObject;
  }

  const std::vector<Attachment>* attachments_;
};

// ---- What is asked before anything is sealed ----------------------------------------------------------

[[noreturn]] void Refuse(const std::string& what, const char* remedy) {
  throw Failure(Status::kCouldNot, what, remedy);
}

// The routing has no escapes: in an address these would be another routing.
void CheckAddress(const std::string& address) {
  const bool is_good =
      !address.empty() && Printable(address) == address && address.find_first_of("<>|") == std::string::npos;
  if (!is_good) {
    Refuse(Fill(_("\"{1}\" is no address."), {Printable(address)}),
           _("An address has no <, > and | and no line end; give several with commas or one option each."));
  }
}

std::string ListOf(const std::vector<std::string>& addresses) {
  std::string list;
  for (const std::string& address : addresses) {
    CheckAddress(address);
    list += (list.empty() ? "" : ",") + address;
  }
  return list;
}

std::string Now() {
  const std::time_t now = std::time(nullptr);
  std::tm date{};
  (void)::localtime_r(&now, &date);
  std::array<char, kDateCharacters + 1> text{};
  (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &date);
  return text.data();
}

// A date that the calendar has comes out as it went in.
std::string CheckedDate(const std::string& date) {
  std::tm parts{};
  const char* end = ::strptime(date.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
  std::array<char, kDateCharacters + 1> again{};
  (void)::timegm(&parts);
  (void)std::strftime(again.data(), again.size(), "%Y-%m-%d %H:%M:%S", &parts);
  if (end == nullptr || *end != 0 || date != again.data()) {
    Refuse(Fill(_("\"{1}\" is no date."), {Printable(date)}),
           _("Write it as in --date \"2026-01-31 23:59:59\"."));
  }
  return date;
}

Attachment ReadAttachment(const std::string& path) {
  Attachment attachment{std::filesystem::path(path).filename(), ReadFile(path)};
  if (attachment.content.size() > kLargestAttachment) {
    Refuse(Fill(_("{1} has {2} bytes; an attachment has 1000000 at most."),
                {Printable(path), std::to_string(attachment.content.size())}),
           _("Make it smaller, or send it in pieces."));
  }
  return attachment;
}

std::vector<Attachment> ReadAttachments(const std::vector<std::string>& paths) {
  if (paths.size() > kMostAttachments) {
    Refuse(_("A message has 99 attachments at most."), _("Send several messages, or an archive."));
  }
  std::vector<Attachment> attachments;
  attachments.reserve(paths.size());
  for (const std::string& path : paths) attachments.push_back(ReadAttachment(path));
  return attachments;
}

Content ReadText(const std::string& path, bool has_attachments) {
  Content text = ReadFile(path);
  if (std::strlen(text.text()) != text.size()) {
    Refuse(Fill(_("{1} holds a zero byte and is no text."), {Printable(NameOf(path))}),
           _("Attach it with --attach."));
  }
  if (text.size() == 0 && !has_attachments) {
    Refuse(Fill(_("{1} is empty: there is nothing to send."), {Printable(NameOf(path))}),
           _("Give a text, or an attachment with --attach."));
  }
  return text;
}

// ---- Sealing ------------------------------------------------------------------------------------------

struct Letter {
  std::string to, cc, bcc, reply_to, date;
  Content text;
  std::vector<Attachment> attachments;
};

struct Keys {
  std::string folder;
  ChosenKey user, signer;
  Secret pass_phrase, signing_pass_phrase;
};

Secret Unprotected() {
  constexpr std::string_view kAnything = "none";
  Secret secret;
  if (!secret.Allocate(kAnything.size() + 1)) throw std::bad_alloc();
  kAnything.copy(secret.text(), kAnything.size());
  return secret;
}

struct Sealed {
  CBuffer block;
  std::array<char, kMessageIdentifierBytes> identifier{};
};

Result SealLetter(const Letter& letter, Keys& keys, const std::string& subject, Sealed* sealed) {
  WatchingCreator creator;
  Owned<Envelope> envelope(new (std::nothrow) Envelope(&letter.attachments));
  const char* folder = keys.folder.c_str();
  if (const Result rc = envelope.Init(&creator, folder, folder); rc != kOk) return rc;
  constexpr std::size_t kHexBytes = 65;
  SecretArray<kHexBytes> hex;
  if (const Result rc = BuildHexPassword(keys.pass_phrase.data(), hex.data()); rc != kOk) return rc;
  std::string numbers;
  for (std::size_t i = 0; i < letter.attachments.size(); ++i)
    numbers += (i == 0 ? "" : "|") + std::to_string(i);
  const Result rc = sealed->block.Receive([&](unsigned char** block, unsigned long long* length) {
    return envelope->CrypterSigner(
        keys.user.name.c_str(), hex.text(), keys.signer.name.c_str(), keys.signing_pass_phrase.text(),
        letter.to.c_str(), letter.cc.c_str(), letter.bcc.c_str(),
        letter.reply_to.empty() ? nullptr : letter.reply_to.c_str(), subject.c_str(), letter.date.c_str(),
        nullptr, letter.text.size() == 0 ? nullptr : letter.text.text(),
        numbers.empty() ? nullptr : numbers.c_str(), nullptr, block, length, sealed->identifier.data());
  });
  return rc == kOk ? creator.failed() : rc;
}

Keys ChooseKeys(Options& options, const std::string& folder) {
  Keys keys{folder, options.user.Choose(folder), options.signer.Choose(folder), {}, {}};
  keys.pass_phrase = options.pass_phrases.Of(keys.user.file);
  keys.signing_pass_phrase =
      keys.signer.needs_pass_phrase ? options.pass_phrases.OfSigningKey(keys.signer.file) : Unprotected();
  return keys;
}

Status Seal(Options& options, const Program& program) {
  if (options.to.empty() && options.cc.empty() && options.bcc.empty()) {
    Refuse(_("There is no recipient."), _("Name one with --to, --cc or --bcc."));
  }
  Letter letter{ListOf(options.to),
                ListOf(options.cc),
                ListOf(options.bcc),
                ListOf(options.reply_to),
                options.date.empty() ? Now() : CheckedDate(options.date),
                {},
                {}};
  const std::string folder = program.KeyFolder();
  // Sealing uses up bytes of the pads, so all else that can fail comes first.
  Output output(options.output, Manner{.is_binary = true, .force = options.force});
  letter.attachments = ReadAttachments(options.attachments);
  letter.text = ReadText(options.text, !letter.attachments.empty());
  Keys keys = ChooseKeys(options, folder);
  Sealed sealed;
  {
    Progress progress;
    progress.Step(_("Sealing"));
    const Result rc = SealLetter(letter, keys, options.subject, &sealed);
    if (rc != kOk)
      throw LibraryFailure(kSealing, rc, Fill(_("{1} and {2}"), {keys.user.file, keys.signer.file}));
  }
  output.Write({sealed.block.text(), sealed.block.size()});
  output.Commit();
  Note(Fill(_("Message identifier: {1}"), {Printable(sealed.identifier.data())}));
  return Status::kDone;
}

}  // namespace

void AddSeal(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      program.Add("seal", _("Seals a text and attachments into a message"),
                  "  kestrune seal --to dr.b@service.example --subject Bonjour note.txt -o message.tr\n"
                  "  kestrune seal --to dr.b@service.example --attach scan.pdf note.txt -o message.tr",
                  [options, &program] { return Seal(*options, program); });
  command.add_option("text", options->text, _("Text; without it, standard input"))->type_name(_("TEXTFILE"));
  const auto add_list = [&command](const char* name, std::vector<std::string>* list, const char* what,
                                   const char* type) {
    command.add_option(name, *list, what)->type_name(type)->allow_extra_args(false);
  };
  add_list("--to", &options->to, _("Recipient; may be given several times"), _("ADDRESS"));
  add_list("--cc", &options->cc, _("Recipient of a copy; likewise"), _("ADDRESS"));
  add_list("--bcc", &options->bcc, _("Hidden recipient; likewise"), _("ADDRESS"));
  add_list("--reply-to", &options->reply_to, _("Where answers go, else to the sender; likewise"),
           _("ADDRESS"));
  command.add_option("--subject", options->subject, _("Subject"))->type_name(_("TEXT"));
  add_list("--attach", &options->attachments,
           _("File of 1,000,000 bytes at most; may be given several times"), _("FILE"));
  command.add_option("--date", options->date, _("Local time of sending, \"2026-01-31 23:59:59\"; else now"))
      ->type_name(_("DATE"));
  command
      .add_option("-o,--output", options->output, _("Writes the message to FILE; else to standard output"))
      ->type_name(_("FILE"));
  command.add_flag("--force", options->force, _("Writes the message also to a terminal"));
  options->signer.AddTo(command);
  options->user.AddTo(command);
  options->pass_phrases.AddTo(command);
  options->pass_phrases.AddSigningTo(command);
}

}  // namespace kestrune::cli
