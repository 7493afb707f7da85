// Calls of the system that a signal interrupts.
#ifndef KESTRUNE_BASE_UNINTERRUPTED_H
#define KESTRUNE_BASE_UNINTERRUPTED_H

#include <cerrno>

namespace kestrune {

// Makes the call (a lambda that returns -1 for a failure, as the system's do) again for as long as a signal interrupts
// it: a caller's timer is no failure of ours.
template <class Call>
auto Uninterrupted(Call&& call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace kestrune

#endif
