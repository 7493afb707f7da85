#include "cli/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "cli/console.h"
#include "cli/descriptor.h"
#include "cli/failure.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

constexpr std::size_t kMostBytes = 2'000'000'000;
constexpr std::size_t kFirstBytes = 65536;

void Grow(SecretCBuffer& buffer, std::size_t used) {
  SecretCBuffer larger;
  if (!larger.AllocateUncleared(buffer.size() * 2)) throw std::bad_alloc();
  std::memcpy(larger.data(), buffer.data(), used);
  buffer = std::move(larger);
}

}  // namespace

void RefuseEarlyEnd(int fd, const std::string& name) {
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (::lseek(fd, 0, SEEK_CUR) >= status.st_size) return;
  throw Failure(Status::kCouldNot, Fill(_("{1} ends before its end."), {Printable(name)}),
                _("Try again when nobody writes it anew."));
}

std::string NameOf(const std::string& path, bool is_output) {
  return path != kStandard ? path : is_output ? _("standard output") : _("standard input");
}

Content ReadDescriptor(int fd, const std::string& name) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) throw SystemFailure(errno, name);
  const std::size_t expected = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
  SecretCBuffer buffer;
  // A byte more than expected shows the end of the file, another one is the terminator's.
  if (!buffer.AllocateUncleared(std::max(kFirstBytes, std::min(expected, kMostBytes) + 2)))
    throw std::bad_alloc();
  std::size_t used = 0;
  for (;;) {
    if (used + 1 >= buffer.size()) Grow(buffer, used);
    const ssize_t got =
        Uninterrupted([&] { return ::read(fd, buffer.data() + used, buffer.size() - used - 1); });
    if (got < 0) throw SystemFailure(errno, name);
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
    if (used > kMostBytes) {
      throw Failure(Status::kCouldNot,
                    Fill(_("{1} has more than {2} bytes."), {Printable(name), "2000000000"}),
                    _("No message, key or text has as many."));
    }
  }
  // Whoever writes it anew meanwhile, or a server that is gone, must not have half of it signed or sealed.
  RefuseEarlyEnd(fd, name);
  buffer.data()[used] = 0;
  return {std::move(buffer), used};
}

Content ReadFile(const std::string& path) {
  if (path == kStandard) {
    if (::isatty(STDIN_FILENO) == 1)
      Note(_("Reading from the terminal; Ctrl-D on a line of its own ends it."));
    return ReadDescriptor(STDIN_FILENO, NameOf(path));
  }
  const Descriptor file = Open(path, O_RDONLY);
  if (!file.is_open()) throw SystemFailure(errno, path);
  return ReadDescriptor(file.get(), path);
}

}  // namespace kestrune::cli
