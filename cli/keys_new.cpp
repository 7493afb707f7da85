// kestrune keys new: throw-away keys for trials.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "cli/console.h"
#include "cli/failure.h"
#include "cli/keys.h"
#include "cli/output.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "cli/trial_keys.h"

namespace kestrune::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostName = 39, kMostPhrase = 32;
constexpr mode_t kOwnerAlone = 0700;

void CheckName(const std::string& name) {
  constexpr char kAllowed[] = "abcdefghijklmnopqrstuvwxyz0123456789-_";
  if (!name.empty() && name.size() <= kMostName && name[0] != '-' &&
      name.find_first_not_of(kAllowed) == std::string::npos)
    return;
  throw Failure(Status::kCouldNot, Fill(_("{1} is no name for a key."), {Printable(name)}),
                _("Take 1 to 39 of the characters a to z, 0 to 9, - and _."));
}

// The folder and those above it, for their owner alone. Those that were missing, the innermost first.
std::vector<Pending> MakeFolder(const std::string& folder) {
  std::vector<Pending> made;
  fs::path path;
  for (const fs::path& part : fs::path(folder)) {
    path /= part;
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) continue;
    const auto lock = FinishUndisturbed();
    if (::mkdir(path.c_str(), kOwnerAlone) != 0 && errno != EEXIST) throw SystemFailure(errno, path.string());
    made.emplace(made.begin(), path.string());
    SyncFolderOf(path);
  }
  return made;
}

std::string_view TextOf(const Secret& text) {
  return text.text();
}
std::string_view BytesOf(const Secret& bytes) {
  return {bytes.text(), bytes.size()};
}

Status New(const std::string& name, const std::string& folder, PassPhrases& pass_phrases) {
  CheckName(name);
  const Secret phrase = pass_phrases.OfNew(_("the trial keys"));
  const std::size_t characters = std::strlen(phrase.text());
  if (characters == 0 || characters > kMostPhrase) {
    throw Failure(Status::kCouldNot, Fill(_("The pass phrase has {1} bytes."), {std::to_string(characters)}),
                  _("Take 1 to 32."));
  }
  Progress progress;
  progress.Step(_("Making keys"));
  const TrialKeys keys = MakeTrialKeys(name, phrase);
  std::vector<Pending> folders = MakeFolder(folder);

  // Another user's keys may lie there already; the master key is everybody's.
  struct File {
    std::string path;
    std::string_view content;
  };
  std::vector<File> files = {{folder + keys.signing_file, TextOf(keys.signing_key)},
                             {folder + keys.certificate_file, TextOf(keys.certificate)},
                             {folder + keys.personal_file, BytesOf(keys.personal_key)}};
  struct stat status {};
  if (::stat((folder + keys.master_file).c_str(), &status) != 0) {
    files.push_back({folder + keys.master_file, BytesOf(keys.master_key)});
  }
  Manner manner;
  manner.is_secret = manner.must_be_new = true;
  std::vector<Output> outputs;
  for (const File& file : files) outputs.emplace_back(file.path, manner).Write(file.content);
  // All of them or none: a signal waits, and what a later one's failure leaves alone goes.
  const auto lock = FinishUndisturbed();
  std::vector<Pending> done;
  for (std::size_t i = 0; i < files.size(); ++i) {
    outputs[i].Commit();
    done.emplace_back(files[i].path);
  }
  for (std::vector<Pending>* kept : {&done, &folders}) {
    for (Pending& path : *kept) path.Keep();
  }
  for (const File& file : files) Note(Printable(file.path));
  Note(_("These are for trials alone and protect nobody: real keys come from the service."));
  return Status::kDone;
}

}  // namespace

void AddKeysNew(Program& program, CLI::App& keys) {
  const auto name = std::make_shared<std::string>();
  const auto pass_phrases = std::make_shared<PassPhrases>();
  CLI::App& command = program.Add(
      "new", _("Makes throw-away keys for trials; real ones come from the service"),
      "  kestrune -k try/keys keys new martin",
      [name, pass_phrases, &program] { return New(*name, program.NewKeyFolder(), *pass_phrases); }, &keys);
  command.add_option("name", *name, _("Whose: a to z, 0 to 9, - and _"))->type_name(_("NAME"))->required();
  pass_phrases->AddTo(command);
}

}  // namespace kestrune::cli
