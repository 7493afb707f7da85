#include "base/regular_file.h"

#include <unistd.h>

#include "base/uninterrupted.h"

namespace kestrune {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

void FileDescriptor::reset() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

FileDescriptor OpenDescriptor(const char* path, int flags, mode_t new_file_mode, int folder) {
  FileDescriptor file(Uninterrupted(
      [&] { return ::openat(folder, path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, new_file_mode); }));
  if (!file.valid() || file.get() > STDERR_FILENO) return file;
  return FileDescriptor(::fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

FileDescriptor OpenRegularFile(const char* path, int flags, struct stat* status, mode_t new_file_mode) {
  struct stat found;
  // Asked before opening, because merely opening some devices does something to them ...
  const bool is_there = ::stat(path, &found) == 0;
  if (is_there ? !S_ISREG(found.st_mode) : (flags & O_CREAT) == 0) return FileDescriptor();
  FileDescriptor file = OpenDescriptor(path, flags, new_file_mode);
  // ... and again afterwards, because the name may stand for another file by then.
  if (!file.valid() || ::fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return FileDescriptor();
  if (status != nullptr) *status = found;
  return file;
}

bool SyncFile(const FileDescriptor& file) {
  return Uninterrupted([&] { return ::fsync(file.get()); }) == 0;
}

bool IsSameFile(const char* a, const char* b) {
  struct stat first;
  struct stat second;
  if (::stat(a, &first) != 0 || ::stat(b, &second) != 0) return false;
  return IsSameFile(first, second);
}

}  // namespace kestrune
