#include "cli/output.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "base/buffer.h"
#include "cli/failure.h"
#include "cli/input.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnerAlone = 0600;
constexpr mode_t kAsUsual = 0666;
constexpr mode_t kModeBits = 0777;

bool has_printed = false;

void WriteNamed(int fd, std::string_view bytes, const std::string& name) {
  if (fd == STDOUT_FILENO && !bytes.empty()) has_printed = true;
  if (WriteAll(fd, bytes)) return;
  if (errno == EPIPE) throw NobodyReads();
  throw SystemFailure(errno, name);
}

void RefuseTerminal(int fd, const Manner& manner) {
  if (!manner.is_binary || manner.force || ::isatty(fd) != 1) return;
  throw Failure(Status::kCouldNot, _("This is no text, and would go to the terminal."),
                _("Name a file with -o, or send it there with --force."));
}

// The place behind all links, which stay; the last part need not be there.
std::string Resolved(const std::string& path) {
  const std::unique_ptr<char, decltype(&::free)> whole(::realpath(path.c_str(), nullptr), ::free);
  if (whole != nullptr) return whole.get();
  const fs::path given(path);
  const fs::path folder = given.has_parent_path() ? given.parent_path() : fs::path(".");
  const std::unique_ptr<char, decltype(&::free)> parent(::realpath(folder.c_str(), nullptr), ::free);
  if (parent == nullptr || !given.has_filename())
    throw SystemFailure(parent == nullptr ? errno : EISDIR, path);
  return fs::path(parent.get()) / given.filename();
}

// In pieces that are wiped.
void PrintToTerminal(std::string_view text, const std::string& name) {
  constexpr std::size_t kPieceBytes = 4096;
  SecretArray<kPieceBytes> piece;
  while (!text.empty()) {
    std::size_t used = 0;
    while (!text.empty() && used + kPrintableBytes < kPieceBytes) {
      used += TakePrintable(&text, true, piece.text() + used);
    }
    if (text.empty() && piece.text()[used - 1] != '\n') piece.text()[used++] = '\n';
    WriteNamed(STDOUT_FILENO, {piece.text(), used}, name);
  }
}

int MoveIntoPlace(const char* from, const char* to, bool must_be_new) {
  if (!must_be_new) return std::rename(from, to);
  if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  // A file system without that operation: a link is not made over a file either.
  return ::link(from, to) == 0 ? ::unlink(from) : -1;
}

}  // namespace

std::string TemporaryName(const std::string& folder) {
  static std::atomic<unsigned> number{0};
  return Fill("{1}/.kestrune-{2}-{3}", {folder, std::to_string(::getpid()), std::to_string(++number)});
}

void SyncFolderOf(const std::string& path) {
  const std::string folder = fs::path(path).parent_path();
  const Descriptor opened = Open(folder.empty() ? "." : folder, O_RDONLY | O_DIRECTORY);
  if (opened.is_open()) (void)Sync(opened.get());
}

Output::Output(std::string path, Manner manner) : path_(std::move(path)), manner_(manner) {
  struct stat out {};
  struct stat there {};
  const bool exists = path_ != kStandard && ::stat(path_.c_str(), &there) == 0;
  const bool is_standard_output = exists && ::fstat(STDOUT_FILENO, &out) == 0 && out.st_dev == there.st_dev &&
                                  out.st_ino == there.st_ino && !S_ISCHR(there.st_mode);
  if (path_ == kStandard || is_standard_output) {
    path_ = kStandard;
    RefuseTerminal(STDOUT_FILENO, manner_);
    return;
  }
  if (exists && S_ISDIR(there.st_mode)) throw SystemFailure(EISDIR, path_);
  if (exists && !S_ISREG(there.st_mode)) {
    file_ = Open(path_, O_WRONLY | O_NOCTTY);
    if (!file_.is_open()) throw SystemFailure(errno, path_);
    RefuseTerminal(file_.get(), manner_);
    return;
  }
  if (exists && manner_.must_be_new && !manner_.force) throw SystemFailure(EEXIST, path_);
  if (exists && ::access(path_.c_str(), W_OK) != 0) throw SystemFailure(errno, path_);
  mode_ = exists ? there.st_mode & kModeBits : 0;
  target_ = Resolved(path_);
  OpenBeside();
}

void Output::OpenBeside() {
  const mode_t mode = manner_.is_secret ? kOwnerAlone : kAsUsual;
  const std::string folder = fs::path(target_).parent_path();
  do {
    pending_ = Pending(TemporaryName(folder));
    file_ = Open(pending_.path(), O_WRONLY | O_CREAT | O_EXCL, mode);
    if (file_.is_open()) break;
    const int error = errno;
    pending_.Keep();  // it is not ours
    if (error != EEXIST) throw SystemFailure(error, path_);
  } while (true);
  if (mode_ != 0 && !manner_.is_secret) (void)::fchmod(file_.get(), mode_);
}

void Output::Write(std::string_view bytes) {
  WriteNamed(path_ == kStandard ? STDOUT_FILENO : file_.get(), bytes, NameOf(path_, true));
}

void Output::Sync() {
  if (!file_.is_open() || target_.empty()) return;
  if (!kestrune::cli::Sync(file_.get()) || file_.Close() != 0) throw SystemFailure(errno, path_);
}

void Output::TakeBack() {
  if (!target_.empty()) (void)std::remove(target_.c_str());
}

void Output::Commit() {
  if (path_ == kStandard) return;
  if (target_.empty()) {
    if (file_.Close() != 0) throw SystemFailure(errno, path_);
    return;
  }
  Sync();
  const auto lock = FinishUndisturbed();
  if (MoveIntoPlace(pending_.path().c_str(), target_.c_str(), manner_.must_be_new && !manner_.force) != 0) {
    throw SystemFailure(errno, path_);
  }
  pending_.Keep();
  SyncFolderOf(target_);
}

void WriteOutput(const std::string& path, std::string_view bytes, Manner manner) {
  Output output(path, manner);
  output.Write(bytes);
  output.Commit();
}

void PrintText(std::string_view text) {
  const std::string name = NameOf(kStandard, true);
  if (::isatty(STDOUT_FILENO) == 1) {
    PrintToTerminal(text, name);
  } else {
    WriteNamed(STDOUT_FILENO, text, name);
  }
}

void PrintLines(std::string_view text) {
  PrintText(text);
  const bool is_ended = text.ends_with('\n') || (!text.empty() && ::isatty(STDOUT_FILENO) == 1);
  if (!is_ended) PrintText("\n");
}

void PrintPainted(std::string_view text) {
  WriteNamed(STDOUT_FILENO, text, NameOf(kStandard, true));
}

void CloseStandardOutput() {
  // What was printed may be lost only now; where nothing was, nothing is.
  if (::close(STDOUT_FILENO) != 0 && has_printed) throw SystemFailure(errno, NameOf(kStandard, true));
}

void OccupyStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is the one that is missing; opened the wrong way round, it answers EBADF.
    if (::fcntl(fd, F_GETFD) < 0) (void)::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace kestrune::cli
