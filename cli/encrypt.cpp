// kestrune encrypt and decrypt: short texts under a password, or for the holder of a certificate.
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include <kestrune/kestrune.h>
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/input.h"
#include "cli/key_choice.h"
#include "cli/output.h"
#include "cli/pass_phrase.h"
#include "cli/sealed_file.h"
#include "cli/text.h"
#include "core/result.h"

namespace kestrune::cli {
namespace {

constexpr int kEncipher = 0;
constexpr int kDecipher = 1;
constexpr std::size_t kLongestForCertificate = 3743;  // a longer text would be left out of the form
constexpr std::size_t kLongestName = 100;
constexpr std::size_t kFormRoom = 6500;
constexpr std::size_t kRoomForHolder = 3745;  // what a form of Api2AesPub can hold
constexpr std::size_t kCountingCharacters = 32;
constexpr std::size_t kHexPasswordBytes = 65;

struct Options {
  std::string file = kStandard;
  std::string output = kStandard;
  std::string to;
  bool force = false;
  PassPhrases pass_phrases;
};

using HexPassword = SecretArray<kHexPasswordBytes>;

void MakeHexPassword(const Secret& password, HexPassword* hex) {
  if (std::strlen(password.text()) > kCountingCharacters) {
    Note(_("Only the first 32 characters of the password count."));
  }
  const int code = BuildHexPassword(password.data(), hex->data());
  if (code != 0) throw LibraryFailure("BuildHexPassword", code, _("the password"));
}

// Room for a result that is wiped.
Secret Room(std::size_t bytes) {
  Secret room;
  if (!room.Allocate(bytes)) throw std::bad_alloc();
  return room;
}

// ---- Enciphering --------------------------------------------------------------------------------------

Secret UnderPassword(const Content& text, const Secret& password) {
  HexPassword hex;
  MakeHexPassword(password, &hex);
  Secret form = Room(2 * text.size() + 2 * kFormRoom);
  const int code = Api2Aes(text.text(), hex.text(), kEncipher, form.text(), 0);
  if (code != 0) throw LibraryFailure("Api2Aes", code, {});
  return form;
}

Secret ForHolder(const Content& text, const std::string& holder, const std::string& folder) {
  const std::string certificate = holder + ".pem";
  struct stat status {};
  if (::stat((folder + certificate).c_str(), &status) != 0) {
    throw SystemFailure(errno, folder + certificate);
  }
  if (certificate.size() > kLongestName || certificate.find('/') != std::string::npos) {
    throw Failure(Status::kCouldNot, Fill(_("{1} is no name of a certificate."), {Printable(holder)}),
                  _("Give the certificate's file name without \".pem\", and its folder with -k."));
  }
  if (text.size() > kLongestForCertificate) {
    throw Failure(
        Status::kCouldNot,
        Fill(_("The text has {1} bytes, and {2} at most can be enciphered for a certificate's holder."),
             {std::to_string(text.size()), std::to_string(kLongestForCertificate)}),
        _("Seal it as a message, with kestrune seal."));
  }
  Secret form = Room(certificate.size() + kFormRoom);
  const int code = Api2AesPub(text.text(), certificate.c_str(), folder.c_str(), form.text(), 0);
  if (code != 0) throw LibraryFailure("Api2AesPub", code, folder + certificate);
  return form;
}

Status Encrypt(Options& options, const Program& program) {
  const std::string folder = options.to.empty() ? std::string() : program.KeyFolder();
  Output output(options.output, {});
  const Content text = ReadFile(options.file);
  if (std::strlen(text.text()) != text.size()) {
    throw Failure(Status::kCouldNot,
                  Fill(_("{1} holds a zero byte and is no text."), {Printable(NameOf(options.file))}),
                  _("Send files as attachments of a message, with kestrune seal."));
  }
  const Secret form = options.to.empty() ? UnderPassword(text, options.pass_phrases.OfNew(_("the text")))
                                         : ForHolder(text, options.to, folder);
  output.Write(std::string(form.text()) + "\n");
  output.Commit();
  return Status::kDone;
}

// ---- Deciphering --------------------------------------------------------------------------------------

// Nothing in these forms proves the password: what comes out of a wrong one passes for a text now and then, but not for
// one that can be shown.
void RefuseNoise(int code, const Secret& text, const char* entry_point, const std::string& called) {
  if (code != 0 && code != hybrid::kNoText) throw LibraryFailure(entry_point, code, called);
  if (code == 0 && IsPrintable(text.text())) return;
  throw Failure(Status::kNo, Fill(_("{1} does not decipher to a text."), {Printable(called)}),
                _("The password is another one, or the file is damaged; --force writes what came out."));
}

Secret FromPassword(const Content& form, const Options& options, const Secret& password) {
  HexPassword hex;
  MakeHexPassword(password, &hex);
  Secret text = Room(form.size() + 1);
  const std::string called = NameOf(options.file);
  if (options.force) {
    const int code = Api2Aes(form.text(), hex.text(), kDecipher, text.text(), 0);
    if (code != 0) throw LibraryFailure("Api2Aes", code, called);
  } else {
    const int code = kestrune_decipher_text(form.text(), hex.text(), text.text());
    RefuseNoise(code, text, "kestrune_decipher_text", called);
  }
  return text;
}

// Whether the private key that a form asks for wants a pass phrase, as far as can be seen.
bool NeedsPassPhrase(const std::string& folder, const std::string& key_file) {
  const KeyList list = ListKeys(folder);
  for (unsigned long long i = 0; i < list->keys; ++i) {
    if (key_file == list->key[i].file) return list->key[i].protection != 0;
  }
  throw Failure(Status::kCouldNot, Fill(_("{1} is not in {2}."), {Printable(key_file), Printable(folder)}),
                _("This form can be read by the holder of that key alone."));
}

Secret FromHolder(const Content& form, Options& options, const std::string& folder) {
  const std::string called = NameOf(options.file);
  std::string key_file(Element(form.view(), "N"));
  constexpr std::size_t kSuffix = 3;
  if (key_file.size() > kSuffix) key_file.replace(key_file.size() - kSuffix, kSuffix, "key");
  Secret pass_phrase = Room(1);
  if (NeedsPassPhrase(folder, key_file)) pass_phrase = options.pass_phrases.Of(key_file);
  Secret text = Room(kRoomForHolder);
  if (options.force) {
    const int code = Api2DeAesPriv(form.text(), pass_phrase.text(), folder.c_str(), text.text(), 0);
    if (code != 0) throw LibraryFailure("Api2DeAesPriv", code, called);
  } else {
    const int code =
        kestrune_decipher_text_for_holder(form.text(), pass_phrase.text(), folder.c_str(), text.text());
    RefuseNoise(code, text, "kestrune_decipher_text_for_holder", called);
  }
  return text;
}

Status Decrypt(Options& options, const Program& program) {
  const Content form = ReadFile(options.file);
  const bool is_for_holder = form.view().find("<AESPUB>") != std::string_view::npos;
  if (!is_for_holder && form.view().find("<AE>") == std::string_view::npos) {
    throw Failure(Status::kNo,
                  Fill(_("{1} is no text that kestrune encrypt made."), {Printable(NameOf(options.file))}),
                  _("kestrune open opens messages; kestrune inspect FILE says what it is."));
  }
  Manner manner;
  manner.is_secret = true;
  Output output(options.output, manner);
  const Secret text = is_for_holder ? FromHolder(form, options, program.KeyFolder())
                                    : FromPassword(form, options, options.pass_phrases.Of(_("the text")));
  if (options.output == kStandard) {
    PrintText(text.text());
  } else {
    output.Write(text.text());
    output.Commit();
  }
  return Status::kDone;
}

void AddFiles(CLI::App& command, Options* options, const char* what) {
  command.add_option("file", options->file, what)->type_name(_("FILE"));
  command.add_option("-o,--output", options->output, _("Writes to FILE; else to standard output"))
      ->type_name(_("FILE"));
  options->pass_phrases.AddTo(command);
}

}  // namespace

void AddEncrypt(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      program.Add("encrypt", _("Enciphers a short text under a password, or for a certificate's holder"),
                  "  kestrune encrypt note.txt -o note.enc\n  kestrune encrypt --to medecin.z.126 note.txt",
                  [options, &program] { return Encrypt(*options, program); });
  AddFiles(command, options.get(), _("Text; without it, standard input"));
  command.add_option("--to", options->to, _("For the holder of the certificate NAME.pem in the key folder"))
      ->type_name(_("NAME"));
}

void AddDecrypt(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      program.Add("decrypt", _("Deciphers what kestrune encrypt made"), "  kestrune decrypt note.enc",
                  [options, &program] { return Decrypt(*options, program); });
  AddFiles(command, options.get(), _("What encrypt made; without it, standard input"));
  command.add_flag("--force", options->force, _("Writes what came out also where it is no text"));
}

}  // namespace kestrune::cli
