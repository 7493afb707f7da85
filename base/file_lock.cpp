#include "base/file_lock.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <new>
#include <utility>

#include "base/shared_state.h"
#include "base/uninterrupted.h"

namespace kestrune {
namespace {

// A lock that is held or waited for. All of them, and the two counters, are touched under SharedState alone.
struct LockEntry {
  UpdateLock number;
  unsigned long long thread;
  struct stat identity;
  FileDescriptor file;
  unsigned holders;
  LockEntry* next;
};

LockEntry* g_first = nullptr;
UpdateLock g_last_number = 0;
unsigned long long g_last_thread = 0;

// The link to the first entry that matches, or the empty one at the end.
template <class Matches>
LockEntry** Find(Matches&& matches) {
  LockEntry** at = &g_first;
  while (*at != nullptr && !matches(**at)) at = &(*at)->next;
  return at;
}

LockEntry** Find(UpdateLock number) {
  return Find([&](const LockEntry& entry) { return entry.number == number; });
}

void Remove(LockEntry** at) {
  LockEntry* const entry = *at;
  *at = entry->next;
  delete entry;
}

// A child shares its parent's open file descriptions; were it to keep them, also those that a thread still
// waits with, the lock would outlive the parent.
void ForgetInChild() {
  while (g_first != nullptr) Remove(&g_first);
}

const bool g_forgets_in_children = ::pthread_atfork(nullptr, nullptr, ForgetInChild) == 0;

// Unlike the system's own, these numbers are never used again.
unsigned long long ThisThread() {
  thread_local unsigned long long number = 0;
  if (number == 0) number = ++g_last_thread;
  return number;
}

bool WaitForLock(int fd) {
  struct flock whole_file {};
  whole_file.l_type = F_WRLCK;
  whole_file.l_whence = SEEK_SET;
  return Uninterrupted([&] { return ::fcntl(fd, F_OFD_SETLKW, &whole_file); }) == 0;
}

// Takes or joins the lock of the file that the path names at this moment; *identity tells which one.
UpdateLock Acquire(const char* path, mode_t new_file_mode, struct stat* identity) {
  if (!g_forgets_in_children) return 0;
  UpdateLock number = 0;
  int waits_with = -1;
  {
    // The descriptor is opened and entered without a fork in between, which would leave it with the child.
    const SharedState shared;
    const int flags = O_RDWR | (new_file_mode == 0 ? 0 : O_CREAT);
    FileDescriptor file = OpenRegularFile(path, flags, identity, new_file_mode);
    if (!file.valid()) return 0;
    const unsigned long long thread = ThisThread();
    LockEntry* const own = *Find([&](const LockEntry& entry) {
      return entry.thread == thread && IsSameFile(entry.identity, *identity);
    });
    if (own != nullptr) {
      ++own->holders;
      return own->number;
    }
    waits_with = file.get();
    number = g_last_number + 1;
    auto* const entry = new (std::nothrow) LockEntry{number, thread, *identity, std::move(file), 1, g_first};
    if (entry == nullptr) {
      errno = ENOMEM;
      return 0;
    }
    g_first = entry;
    g_last_number = number;
  }
  // Threads, too, are kept apart by the system: each waits with an open file description of its own.
  if (WaitForLock(waits_with)) return number;
  ReleaseUpdateLock(number);
  return 0;
}

}  // namespace

FileDescriptor OpenForUpdate(const char* path, UpdateLock* lock, mode_t new_file_mode) {
  *lock = 0;
  for (;;) {
    struct stat locked;
    const UpdateLock taken = Acquire(path, new_file_mode, &locked);
    if (taken == 0) return FileDescriptor();
    struct stat found;
    FileDescriptor file = OpenRegularFile(path, O_RDWR, &found);
    if (file.valid() && IsSameFile(found, locked)) {
      *lock = taken;
      return file;
    }
    // Replaced or removed by whoever had the lock before.
    ReleaseUpdateLock(taken);
    if (!file.valid() && (new_file_mode == 0 || ::stat(path, &found) == 0)) return file;
  }
}

bool HoldsUpdateLock(UpdateLock lock) {
  const SharedState shared;
  return *Find(lock) != nullptr;
}

void ReleaseUpdateLock(UpdateLock lock) {
  const SharedState shared;
  LockEntry** const held = Find(lock);
  if (*held != nullptr && --(*held)->holders == 0) Remove(held);
}

}  // namespace kestrune
