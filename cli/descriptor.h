// A file descriptor's owner, and calls of the system that no signal interrupts.
#ifndef KESTRUNE_CLI_DESCRIPTOR_H
#define KESTRUNE_CLI_DESCRIPTOR_H

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

#include "base/uninterrupted.h"

namespace kestrune::cli {

// -1 stands for none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      (void)Close();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~Descriptor() { (void)Close(); }

  bool is_open() const noexcept { return fd_ >= 0; }
  int get() const noexcept { return fd_; }
  // close()'s own answer; 0 where there is nothing to close.
  int Close() noexcept { return fd_ < 0 ? 0 : ::close(std::exchange(fd_, -1)); }

 private:
  int fd_;
};

// Not open where the system refuses, errno saying why. Nobody inherits it.
inline Descriptor Open(const std::string& path, int flags, mode_t mode = 0) {
  return Descriptor(Uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

// False where not all of it can be written, errno saying why.
inline bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = Uninterrupted([&] { return ::write(fd, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Whether all that was written is on stable storage; else errno says why.
inline bool Sync(int fd) {
  return Uninterrupted([&] { return ::fsync(fd); }) == 0;
}

}  // namespace kestrune::cli

#endif
