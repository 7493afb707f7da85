#include "base/file_lock.h"

#include <fcntl.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "base/regular_file.h"

namespace kestrune {
namespace {

struct HeldLock {
  UpdateLock number;
  dev_t device;
  ino_t inode;
  FileDescriptor file;
  unsigned holders;
};

// Never destroyed: files may still be closed while the process ends.
std::vector<HeldLock>& Table() {
  static auto* table = new std::vector<HeldLock>();
  return *table;
}

// A child shares its parent's open file descriptions; were it to keep them, the lock would outlive the
// parent.
void ForgetInChild() {
  Table().clear();
}

void ForgetLocksAcrossFork() {
  [[maybe_unused]] static const int registered = ::pthread_atfork(nullptr, nullptr, ForgetInChild);
}

bool WaitForLock(int fd) {
  struct flock whole_file {};
  whole_file.l_type = F_WRLCK;
  whole_file.l_whence = SEEK_SET;
  while (::fcntl(fd, F_OFD_SETLKW, &whole_file) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace

UpdateLock AcquireUpdateLock(const char* path, const struct stat& identity) {
  static UpdateLock last_number = 0;
  const auto held = std::find_if(Table().begin(), Table().end(), [&](const HeldLock& lock) {
    return lock.device == identity.st_dev && lock.inode == identity.st_ino;
  });
  if (held != Table().end()) {
    ++held->holders;
    return held->number;
  }
  ForgetLocksAcrossFork();
  struct stat found;
  FileDescriptor file = OpenRegularFile(path, O_RDWR, &found);
  if (!file.valid() || found.st_dev != identity.st_dev || found.st_ino != identity.st_ino) return 0;
  if (!WaitForLock(file.get())) return 0;
  Table().push_back({++last_number, identity.st_dev, identity.st_ino, std::move(file), 1});
  return last_number;
}

void ReleaseUpdateLock(UpdateLock lock) {
  const auto held = std::find_if(Table().begin(), Table().end(),
                                 [&](const HeldLock& entry) { return entry.number == lock; });
  if (held != Table().end() && --held->holders == 0) Table().erase(held);
}

}  // namespace kestrune
