#include "cli/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "cli/failure.h"
#include "cli/text.h"

namespace kestrune::cli {

MemoryFile::MemoryFile() : file_(::memfd_create("kestrune", MFD_CLOEXEC)) {
  if (!file_.is_open()) throw SystemFailure(errno, _("a file in memory"));
}

std::string MemoryFile::path() const {
  return PathOf(file_);
}

void MemoryFile::Fill(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw SystemFailure(errno, _("a file in memory"));
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

Content MemoryFile::Read() const {
  return ReadFile(path());
}

std::string PathOf(const Descriptor& file) {
  return "/proc/self/fd/" + std::to_string(file.get());
}

}  // namespace kestrune::cli
