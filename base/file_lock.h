// The locks that keep other processes off a file opened for update.
#ifndef KESTRUNE_BASE_FILE_LOCK_H
#define KESTRUNE_BASE_FILE_LOCK_H

#include <sys/stat.h>

namespace kestrune {

// A lock that this process holds; 0 stands for none. Numbers are never used again, so a child made by fork
// cannot give back by its parent's number what it took itself.
using UpdateLock = unsigned long long;

// Waits for the write lock on the whole file that `path` names and `identity` describes, and takes it; 0
// when it cannot be had or the path names another file by now. Within this process the lock is counted: the
// second taker does not wait, and the last ReleaseUpdateLock gives it back.
//
// The lock hangs on a descriptor of its own (an open file description lock), so that closing any other
// descriptor of the file does not end it. It dies with its process, and a child made by fork does not
// inherit it. The table of these descriptors is shared by the whole process.
UpdateLock AcquireUpdateLock(const char* path, const struct stat& identity);
void ReleaseUpdateLock(UpdateLock lock);

}  // namespace kestrune

#endif
