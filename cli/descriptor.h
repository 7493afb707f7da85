// A file descriptor's owner.
#ifndef KESTRUNE_CLI_DESCRIPTOR_H
#define KESTRUNE_CLI_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

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

}  // namespace kestrune::cli

#endif
