// A file in the key folder that is no key and no certificate, or a damaged one. What is read has a usable size.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "crypto/classic.h"

namespace {

constexpr char kPassPhrase[] = "a_b_c_d";

// A regular file that never leaves memory.
class File {
 public:
  File() : fd_(::memfd_create("file", 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {}
  const char* Holding(const std::uint8_t* data, std::size_t size) const {
    if (::ftruncate(fd_, 0) != 0 || ::pwrite(fd_, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    return path_.c_str();
  }

 private:
  const int fd_;
  const std::string path_;
};

void Require(bool is_read, const rsa_context& key) {
  const bool is_usable = key.len() >= kRsaLeastBytes && key.len() <= kRsaMostBytes;
  if (is_read ? !is_usable : key.len() != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const File file;
  const char* const path = file.Holding(data, size);
  rsa_context key;
  Require(x509parse_keyfile(&key, path, kPassPhrase) == 0, key);
  x509_cert certificate;
  Require(x509parse_crtfile(&certificate, path) >= 0, certificate.rsa);
  return 0;
}
