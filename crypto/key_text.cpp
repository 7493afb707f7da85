#include "crypto/key_text.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/regular_file.h"
#include "base/uninterrupted.h"

namespace kestrune::crypto {
namespace {

// No key or certificate comes near this; a larger file is something else.
constexpr off_t kMostFileBytes = 1 << 20;

}  // namespace

KeyText::KeyText(const char* path) {
  struct stat status;
  const FileDescriptor file = OpenRegularFile(path, O_RDONLY, &status);
  if (!file.valid() || status.st_size <= 0 || status.st_size > kMostFileBytes) return;
  lacks_memory_ = !bytes_.Allocate(static_cast<std::size_t>(status.st_size) + 1);
  if (lacks_memory_) return;
  std::size_t got = 0;
  while (got + 1 < bytes_.size()) {
    const ssize_t count =
        Uninterrupted([&] { return ::read(file.get(), bytes_.data() + got, bytes_.size() - 1 - got); });
    if (count <= 0) return;
    got += static_cast<std::size_t>(count);
  }
  complete_ = true;
}

}  // namespace kestrune::crypto
