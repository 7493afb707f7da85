// kestrune verify: what signature blocks sign, and who signed it.
#include <array>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/input.h"
#include "cli/output.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "sign/signature_verify.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kDigestBytes = 64;
constexpr char kEntryPoint[] = "Api2ExtractFromSignature";

struct Options {
  std::vector<std::string> blocks;
  std::string file;
};

using Name = std::array<char, TypApiV2SignatureVerify::kNameOutputBytes>;

// A verifier for one block: it would keep the certificate of the first for all others.
class Verifier {
 public:
  explicit Verifier(const std::string& folder) : verifier_(creator_.newTypApiV2SignatureVerify()) {
    if (const Result rc = verifier_.Init(&creator_, folder.c_str()); rc != kOk) {
      throw LibraryFailure(kEntryPoint, rc, folder);
    }
  }

  // What the block signs; throws where it does not hold.
  Content Recover(const Content& block, const std::string& called) {
    SecretCBuffer data;
    if (!data.Allocate(TypApiV2SignatureVerify::kDataOutputBytes)) throw std::bad_alloc();
    unsigned long long length = 0;
    Name name{};
    Check(verifier_->VerifyXMLSignBlockAuthentificationData(block.text(), name.data(), data.data(), &length),
          name, called);
    Content text(std::move(data), static_cast<std::size_t>(length));
    if (text.size() == kDigestBytes && !IsPrintable(text.view())) {
      throw Failure(Status::kCouldNot, Fill(_("{1} signs a file, and no text."), {Printable(called)}),
                    _("Say which file: kestrune verify --file FILE BLOCK."));
    }
    return text;
  }

  void CheckFile(const Content& block, const std::string& called, const std::string& file_called,
                 const Content& file) {
    Name name{};
    const Result rc = verifier_->VerifySignAndIntegrityDataFromXMLSignBlock(block.text(), file.data(),
                                                                            file.size(), name.data());
    // What does not hold may be either's fault, all else is the block's.
    Check(rc, name, rc == verifier::kBadSignature ? file_called : called);
  }

  const std::string& signer() const { return signer_; }

 private:
  void Check(Result rc, const Name& name, const std::string& called) {
    signer_ = Printable(name.data());
    if (rc == kOk) return;
    if (rc == verifier::kTagMissing || rc == verifier::kNoBlock) {
      throw Failure(
          Status::kNo,
          Fill(_("{1} holds no signature block. (code {2})"), {Printable(called), std::to_string(rc)}),
          _("A block begins with <SIGN> and ends with </SIGN>; kestrune sign makes one."));
    }
    throw LibraryFailure(kEntryPoint, rc,
                         signer_.empty() ? called : Fill(_("{1}, which names {2}"), {called, signer_}));
  }

  TypV2InstanceCreatorUnix creator_;
  Owned<TypApiV2SignatureVerify> verifier_;
  std::string signer_;
};

// One of several is told apart by its file.
void TellSigner(const std::string& signer, const std::string& called, bool is_one_of_many) {
  const std::string line = is_one_of_many ? Fill(_("{1}: signed by {2}"), {Printable(called), signer})
                                          : Fill(_("Signed by {1}"), {signer});
  Note(Painted(Paint::kGood, line));
}

Status VerifyFile(const Options& options, const std::string& folder) {
  if (options.blocks.size() > 1) {
    throw Failure(Status::kCouldNot, _("A file has one signature block at a time."),
                  _("Say kestrune verify --file FILE BLOCK."));
  }
  const std::string block = options.blocks.empty() ? kStandard : options.blocks[0];
  const Content content = ReadFile(block);
  const Content file = ReadFile(options.file);
  Verifier verifier(folder);
  verifier.CheckFile(content, NameOf(block), NameOf(options.file), file);
  TellSigner(verifier.signer(), options.file, false);
  return Status::kDone;
}

Status VerifyTexts(const std::vector<std::string>& blocks, const std::string& folder) {
  Status worst = Status::kDone;
  const bool are_many = blocks.size() > 1;
  Progress progress;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const std::string called = NameOf(blocks[i]);
    progress.Step(Fill(_("Verifying {1}"), {Printable(called)}), i, blocks.size());
    try {
      Verifier verifier(folder);
      const Content text = verifier.Recover(ReadFile(blocks[i]), called);
      are_many ? PrintLines(text.view()) : PrintText(text.view());
      TellSigner(verifier.signer(), called, are_many);
    } catch (const Failure& failure) {
      Complain(failure);
      worst = Worst(worst, failure.status());
    }
  }
  return worst;
}

}  // namespace

void AddVerify(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = program.Add(
      "verify", _("Checks signature blocks: prints the text, and says who signed it"),
      "  kestrune verify note.sign\n  kestrune verify --file report.pdf report.pdf.sign",
      [options, &program] {
        const std::string folder = program.KeyFolder();
        if (!options->file.empty()) return VerifyFile(*options, folder);
        return VerifyTexts(options->blocks.empty() ? std::vector<std::string>{kStandard} : options->blocks,
                           folder);
      });
  command
      .add_option("block", options->blocks,
                  _("Files with a signature block each; without one, standard input"))
      ->type_name(_("BLOCK"));
  command.add_option("--file", options->file, _("Whether FILE is what the block signs"))
      ->type_name(_("FILE"));
}

}  // namespace kestrune::cli
