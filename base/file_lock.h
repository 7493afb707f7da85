// The locks under which files are updated: one process at a time, and in it one thread.
#ifndef KESTRUNE_BASE_FILE_LOCK_H
#define KESTRUNE_BASE_FILE_LOCK_H

#include "base/regular_file.h"

namespace kestrune {

// A lock that a thread of this process holds; 0 stands for none. Numbers are never used again, so a child made
// by fork cannot give back by its parent's number what it took itself.
using UpdateLock = unsigned long long;

// Opens the regular file at `path` for reading and writing, waiting until nobody else updates it, and sets
// *lock. With a `new_file_mode` a missing file is created (less the umask); an existing one keeps its mode. No
// descriptor, and *lock 0, when the file cannot be opened or locked. Whoever waited looks again whether the
// path still names the file that he locked, and begins anew if not.
//
// Threads take turns as processes do. Within a thread the lock is counted: the second taker does not wait, and
// the last ReleaseUpdateLock gives it back. Any thread may release it; until then it is the taker's.
//
// The lock hangs on a descriptor of its own (an open file description lock), so that closing any other
// descriptor of the file does not end it. It dies with its process, and a child made by fork does not
// inherit it.
FileDescriptor OpenForUpdate(const char* path, UpdateLock* lock, mode_t new_file_mode = 0);

// Whether this process took the lock and holds it still: not so in a child made by fork.
bool HoldsUpdateLock(UpdateLock lock);

// Does nothing with a lock that this process does not hold.
void ReleaseUpdateLock(UpdateLock lock);

}  // namespace kestrune

#endif
