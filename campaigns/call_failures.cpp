#include "campaigns/call_failures.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace kestrune::testing {
namespace {

constexpr unsigned kOften = 50, kForEver = ~0U;

constexpr Failure Code(const char* name, int error) {
  return {.name = name, .result = -error};
}
constexpr Failure Always(const char* name, int error) {
  return {.name = name, .result = -error, .times = kForEver};
}
constexpr Failure kInterrupted{.name = "EINTR", .result = -EINTR, .is_unseen = true};
constexpr Failure kInterruptedOften{
    .name = "EINTR often", .result = -EINTR, .times = kOften, .is_unseen = true};
constexpr Failure kHalf{.name = "half", .is_half = true, .is_unseen = true};

struct KnownCall {
  int number;
  Kind kind;
};
constexpr KnownCall kKnown[] = {
#ifdef SYS_open
    {SYS_open, Kind::kOpen},        {SYS_stat, Kind::kLook},       {SYS_lstat, Kind::kLook},
    {SYS_rename, Kind::kChange},    {SYS_unlink, Kind::kChange},   {SYS_readlink, Kind::kLook},
    {SYS_access, Kind::kLook},
#endif
#ifdef SYS_newfstatat
    {SYS_newfstatat, Kind::kLook},
#endif
    {SYS_openat, Kind::kOpen},      {SYS_read, Kind::kRead},       {SYS_pread64, Kind::kRead},
    {SYS_write, Kind::kWrite},      {SYS_pwrite64, Kind::kWrite},  {SYS_writev, Kind::kWrite},
    {SYS_fsync, Kind::kSync},       {SYS_fdatasync, Kind::kSync},  {SYS_close, Kind::kClose},
    {SYS_ftruncate, Kind::kChange}, {SYS_renameat, Kind::kChange}, {SYS_renameat2, Kind::kChange},
    {SYS_unlinkat, Kind::kChange},  {SYS_fchmod, Kind::kChange},   {SYS_fchown, Kind::kChange},
    {SYS_fstat, Kind::kLook},       {SYS_statx, Kind::kLook},      {SYS_readlinkat, Kind::kLook},
    {SYS_faccessat, Kind::kLook},   {SYS_getdents64, Kind::kList}, {SYS_fcntl, Kind::kControl},
    {SYS_getrandom, Kind::kRandom}, {SYS_dup, Kind::kControl},
};

}  // namespace

std::vector<int> FailingCallNumbers() {
  std::vector<int> numbers;
  for (const KnownCall& known : kKnown) numbers.push_back(known.number);
  return numbers;
}

bool KindOf(const SystemCall& call, Kind* kind) {
  const auto* const known = std::find_if(std::begin(kKnown), std::end(kKnown),
                                         [&](const KnownCall& at) { return at.number == call.number; });
  if (known == std::end(kKnown)) return false;
  *kind = known->kind;
  const auto command = static_cast<int>(call.arguments[1]);
  if (call.number == SYS_fcntl && (command == F_OFD_SETLKW || command == F_OFD_SETLK)) *kind = Kind::kLock;
  return true;
}

std::vector<Failure> FailuresOf(Kind kind) {
  switch (kind) {
    case Kind::kOpen:
      return {kInterrupted,           kInterruptedOften,      Code("EIO", EIO),
              Code("EACCES", EACCES), Code("EMFILE", EMFILE), Always("EMFILE always", EMFILE)};
    case Kind::kRead:
      return {kInterrupted,     kInterruptedOften,         kHalf,
              Code("EIO", EIO), Always("EIO always", EIO), {.name = "nothing"}};
    case Kind::kWrite:
      return {kInterrupted,           kInterruptedOften, kHalf,
              Code("ENOSPC", ENOSPC), Code("EIO", EIO),  Always("ENOSPC always", ENOSPC)};
    case Kind::kList:
    case Kind::kSync:
      return {kInterrupted, kInterruptedOften, Code("EIO", EIO)};
    case Kind::kLock:
      return {kInterrupted, kInterruptedOften, Code("ENOLCK", ENOLCK), Code("EDEADLK", EDEADLK)};
    case Kind::kRandom:
      return {kInterrupted, Code("ENOSYS", ENOSYS), Code("EIO", EIO)};
    case Kind::kClose:
      return {Code("EIO", EIO), Code("EINTR", EINTR)};
    case Kind::kChange:
      return {Code("EIO", EIO), Code("EPERM", EPERM)};
    case Kind::kLook:
      return {Code("EIO", EIO), Code("EACCES", EACCES)};
    case Kind::kControl:
      return {Code("EMFILE", EMFILE), Code("EINVAL", EINVAL)};
  }
  return {};
}

}  // namespace kestrune::testing
