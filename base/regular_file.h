// Opening what is read or rewritten: regular files alone (through links), and never waiting for one.
#ifndef KESTRUNE_BASE_REGULAR_FILE_H
#define KESTRUNE_BASE_REGULAR_FILE_H

#include <fcntl.h>
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

// open() with a descriptor above those of standard input, output and error: what is printed while one of these
// is closed must not end up in a file. Never waits, and is not inherited by another program.
FileDescriptor OpenDescriptor(const char* path, int flags, mode_t new_file_mode = 0, int folder = AT_FDCWD);

// Opens the regular file at `path` with `flags` (O_RDONLY or O_RDWR; with O_CREAT a missing one is made). A
// folder, device, FIFO or socket is not opened and nothing waits on it. On success *status, if given,
// describes the open file.
FileDescriptor OpenRegularFile(const char* path, int flags, struct stat* status = nullptr,
                               mode_t new_file_mode = 0);

// Makes durable what was written to the file, or the names in a folder.
bool SyncFile(const FileDescriptor& file);

// True when both paths lead to one and the same file that exists, be it through links.
bool IsSameFile(const char* a, const char* b);
inline bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace kestrune

#endif
