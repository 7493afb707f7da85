#include "base/file_replacement.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/uninterrupted.h"

namespace kestrune {
namespace {

constexpr int kMostNamesTried = 1000;  // tried, where killed processes left theirs behind

// The folder of a path without links, which is cut into folder and *name.
FileDescriptor OpenFolder(char* path, const char** name) {
  char* const separator = std::strrchr(path, '/');
  *separator = 0;
  *name = separator + 1;
  return OpenDescriptor(separator == path ? "/" : path, O_RDONLY | O_DIRECTORY);
}

bool HasOwner(int fd, const struct stat& wanted) {
  struct stat found;
  if (::fstat(fd, &found) != 0) return false;
  return (found.st_uid == wanted.st_uid && found.st_gid == wanted.st_gid) ||
         ::fchown(fd, wanted.st_uid, wanted.st_gid) == 0;
}

}  // namespace

bool SyncFolderOf(const char* path) {
  std::array<char, PATH_MAX> real;
  const char* name = nullptr;
  if (::realpath(path, real.data()) == nullptr) return false;
  const FileDescriptor folder = OpenFolder(real.data(), &name);
  if (!folder.valid()) return errno == EACCES;
  return SyncFile(folder) || errno == EINVAL;
}

FileReplacement::~FileReplacement() {
  if (temporary_[0] != 0) ::unlinkat(folder_.get(), temporary_.data(), 0);
}

bool FileReplacement::Begin(const char* path) {
  struct stat old;
  // What may be replaced is what could be written to.
  if (!OpenRegularFile(path, O_RDWR, &old).valid()) return false;
  return FindFolder(path) && MakeFile() && HasOwner(file_.get(), old) &&
         ::fchmod(file_.get(), old.st_mode & 07777) == 0;
}

bool FileReplacement::FindFolder(const char* path) {
  if (::realpath(path, path_.data()) == nullptr) return false;
  folder_ = OpenFolder(path_.data(), &name_);
  return folder_.valid();
}

bool FileReplacement::MakeFile() {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL;
  constexpr mode_t kOwnerAlone = 0600;
  for (int number = 0; number < kMostNamesTried; ++number) {
    std::snprintf(temporary_.data(), temporary_.size(), ".kestrune-%ld-%d", static_cast<long>(::getpid()),
                  number);
    file_ = OpenDescriptor(temporary_.data(), kFlags, kOwnerAlone, folder_.get());
    if (file_.valid()) return true;
    if (errno != EEXIST) break;
  }
  temporary_[0] = 0;
  return false;
}

bool FileReplacement::Write(const void* bytes, std::size_t count) {
  const char* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = Uninterrupted([&] { return ::write(file_.get(), next, count); });
    if (written <= 0) return false;
    next += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool FileReplacement::Commit() {
  if (!SyncFile(file_) || ::close(file_.release()) != 0) return false;
  if (::renameat(folder_.get(), temporary_.data(), folder_.get(), name_) != 0) return false;
  temporary_[0] = 0;
  // Not looked at: without it a crash may bring back the old content, and each of the two is whole.
  (void)SyncFile(folder_);
  return true;
}

}  // namespace kestrune
