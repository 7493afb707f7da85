// kestrune sign: a signature block of a text, or of a file's digest.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>

#include "cli/commands.h"
#include "cli/input.h"
#include "cli/key_choice.h"
#include "cli/output.h"
#include "cli/pass_phrase.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "sign/signature.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kBlockBytes = 1500;  // for the largest key
constexpr std::size_t kDigestBytes = 64;

struct Options {
  std::string text, file;
  bool has_text = false;
  SignerOption signer;
  PassPhrases pass_phrases;
};

// Of whoever signs 64 bytes that he cannot read a stranger may make a signature under any file.
void RefuseDigest(std::string_view text) {
  if (text.size() != kDigestBytes || IsPrintable(text)) return;
  throw Failure(
      Status::kCouldNot,
      _("These 64 bytes are no text; as a file's digest they would be a signature under that file."),
      _("Sign the file itself, with --file."));
}

void RefuseNoText(std::string_view text) {
  if (text.empty()) {
    throw Failure(Status::kCouldNot, _("There is no text to sign."),
                  _("Give it as an argument or on standard input."));
  }
  if (text.find('\0') != std::string_view::npos) {
    throw Failure(Status::kCouldNot, _("The text holds a zero byte."),
                  _("Sign it as a file, with --file FILE."));
  }
  RefuseDigest(text);
}

Status Sign(Options& options, const Program& program) {
  const bool is_file = !options.file.empty();
  if (is_file && options.has_text) {
    throw Failure(Status::kCouldNot, _("A text and a file were given."), _("Sign one after the other."));
  }
  const std::string folder = program.KeyFolder();
  const ChosenKey key = options.signer.Choose(folder);
  Content read;
  if (is_file || !options.has_text) read = ReadFile(is_file ? options.file : kStandard);
  const std::string_view data = options.has_text ? std::string_view(options.text) : read.view();
  if (!is_file) RefuseNoText(data);

  Secret pass_phrase;
  if (!pass_phrase.Allocate(1)) throw std::bad_alloc();
  if (key.needs_pass_phrase) pass_phrase = options.pass_phrases.OfSigningKey(key.file);

  TypV2InstanceCreatorUnix creator;
  Owned<TypApiV2Signature> signer(creator.newTypApiV2Signature());
  Result rc = signer.Init(&creator, key.name.c_str(), folder.c_str(), pass_phrase.text());
  if (rc == kOk) rc = signer->LoadPrivateKey();
  std::array<char, kBlockBytes> block{};
  if (rc == kOk) {
    rc = signer->GetSignatureXMLLight(reinterpret_cast<const unsigned char*>(data.data()),
                                      static_cast<std::uint32_t>(data.size()), block.data(), is_file ? 1 : 0);
  }
  if (rc == signer::kSign && !is_file) {
    throw Failure(Status::kCouldNot,
                  Fill(_("The text has {1} bytes, more than this key signs. (code {2})"),
                       {std::to_string(data.size()), std::to_string(rc)}),
                  _("Put it into a file and sign that: kestrune sign --file FILE."));
  }
  if (rc != kOk) throw LibraryFailure("Api2GetSignatureXMLLight", rc, folder + key.file);
  PrintText(std::string(block.data()) + "\n");
  return Status::kDone;
}

}  // namespace

void AddSign(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      program.Add("sign", _("Prints a signature block of a text, or of a file"),
                  "  kestrune sign \"Bonjour Docteur\"\n  kestrune sign --file report.pdf > report.pdf.sign",
                  [options, &program] { return Sign(*options, program); });
  command
      .add_option_function<std::string>(
          "text",
          [options](const std::string& text) {
            options->text = text;
            options->has_text = true;
          },
          _("Text to be signed as it is; without it, standard input"))
      ->type_name(_("TEXT"));
  command.add_option("--file", options->file, _("Signs the digest of FILE, of any kind and size"))
      ->type_name(_("FILE"));
  options->signer.AddTo(command);
  options->pass_phrases.AddTo(command);
  options->pass_phrases.AddSigningTo(command);
}

}  // namespace kestrune::cli
