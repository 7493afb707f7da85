// Opening what is read or rewritten: regular files alone (through links), and never waiting for one.
#ifndef KESTRUNE_BASE_REGULAR_FILE_H
#define KESTRUNE_BASE_REGULAR_FILE_H

#include <sys/stat.h>

namespace kestrune {

// Owns a file descriptor; -1 stands for none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) noexcept : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  bool valid() const noexcept { return fd_ >= 0; }
  int get() const noexcept { return fd_; }
  int release() noexcept {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset() noexcept;

 private:
  int fd_;
};

// Opens the regular file at `path` with `flags` (O_RDONLY or O_RDWR). A folder, device, FIFO or socket is
// not opened and nothing waits on it. On success *status, if given, describes the open file.
FileDescriptor OpenRegularFile(const char* path, int flags, struct stat* status = nullptr);

// True when both paths lead to one and the same file that exists, be it through links.
bool IsSameFile(const char* a, const char* b);

}  // namespace kestrune

#endif
