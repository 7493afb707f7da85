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
  if (!WriteAll(file_.get(), bytes)) throw SystemFailure(errno, _("a file in memory"));
}

Content MemoryFile::Read() const {
  return ReadFile(path());
}

std::string PathOf(const Descriptor& file) {
  return "/proc/self/fd/" + std::to_string(file.get());
}

}  // namespace kestrune::cli
