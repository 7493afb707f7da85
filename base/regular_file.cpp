#include "base/regular_file.h"

#include <fcntl.h>
#include <unistd.h>

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

FileDescriptor OpenRegularFile(const char* path, int flags, struct stat* status) {
  struct stat found;
  // Asked before opening, because merely opening some devices does something to them ...
  if (::stat(path, &found) != 0 || !S_ISREG(found.st_mode)) return FileDescriptor();
  FileDescriptor file(::open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  // ... and again afterwards, because the name may stand for another file by then.
  if (!file.valid() || ::fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return FileDescriptor();
  if (status != nullptr) *status = found;
  return file;
}

bool IsSameFile(const char* a, const char* b) {
  struct stat first;
  struct stat second;
  if (::stat(a, &first) != 0 || ::stat(b, &second) != 0) return false;
  return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace kestrune
