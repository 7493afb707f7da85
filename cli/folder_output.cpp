#include "cli/folder_output.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "cli/failure.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

constexpr mode_t kOwnerAlone = 0700;
constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestSuffix = 20;

// Where "report.pdf" ends and its ".pdf" begins.
std::size_t SuffixAt(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 || name.size() - dot > kLongestSuffix ? name.size() : dot;
}

std::string Cut(const std::string& name) {
  if (name.size() <= kLongestName) return name;
  const std::size_t suffix = SuffixAt(name);
  std::size_t end = kLongestName - (name.size() - suffix);
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xc0U) == 0x80) --end;
  return name.substr(0, end) + name.substr(suffix);
}

}  // namespace

std::string HarmlessName(std::string_view name, const std::string& otherwise) {
  const std::size_t separator = name.find_last_of("/\\");
  if (separator != std::string_view::npos) name.remove_prefix(separator + 1);
  std::string harmless;
  while (!name.empty()) {
    // Character by character: what is not shown as itself is not written as itself.
    std::size_t bytes = 1;
    while (bytes < name.size() && (static_cast<unsigned char>(name[bytes]) & 0xc0U) == 0x80) ++bytes;
    const std::string_view character = name.substr(0, bytes);
    harmless += Printable(character) == character ? std::string(character) : "_";
    name.remove_prefix(bytes);
  }
  while (!harmless.empty() && harmless.back() == ' ') harmless.pop_back();
  if (harmless.find_first_not_of("._ ") == std::string::npos) return otherwise;
  // A hidden file, an option, a home folder.
  if (std::string_view(".-~").find(harmless[0]) != std::string_view::npos) harmless[0] = '_';
  return Cut(harmless);
}

std::string Names::Take(const std::string& wanted) {
  const auto folded = [](std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
  };
  std::string name = wanted;
  const std::size_t suffix = SuffixAt(wanted);
  for (unsigned number = 2; !taken_.insert(folded(name)).second; ++number) {
    name = wanted.substr(0, suffix) + "-" + std::to_string(number) + wanted.substr(suffix);
  }
  return name;
}

FolderOutput::FolderOutput(std::string path, bool force) : path_(std::move(path)), force_(force) {
  const auto lock = FinishUndisturbed();
  if (::mkdir(path_.c_str(), kOwnerAlone) == 0) {
    made_ = Pending(path_);
    return;
  }
  struct stat status {};
  if (errno != EEXIST) throw SystemFailure(errno, path_);
  if (::stat(path_.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) throw SystemFailure(ENOTDIR, path_);
}

std::string FolderOutput::Add(std::string_view wanted, const std::string& otherwise, std::string_view bytes) {
  std::string name = names_.Take(HarmlessName(wanted, otherwise));
  files_.emplace_back(path_ + "/" + name, Manner{.is_secret = true, .must_be_new = true, .force = force_});
  files_.back().Write(bytes);
  files_.back().Sync();
  return name;
}

void FolderOutput::Commit() {
  const auto lock = FinishUndisturbed();
  std::size_t done = 0;
  try {
    for (Output& file : files_) {
      file.Commit();
      ++done;
    }
  } catch (...) {
    // With --force what was overwritten is gone; without, what was put there is taken back.
    for (std::size_t i = 0; i < done && !force_; ++i) files_[i].TakeBack();
    throw;
  }
  made_.Keep();
}

}  // namespace kestrune::cli
