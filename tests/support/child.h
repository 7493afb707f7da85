// Work in a process of its own.
#ifndef KESTRUNE_TESTS_SUPPORT_CHILD_H
#define KESTRUNE_TESTS_SUPPORT_CHILD_H

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace kestrune::testing {

inline bool HoldsInAChild(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(work() ? 0 : 1);
  int status = -1;
  ::waitpid(child, &status, 0);
  return status == 0;
}

}  // namespace kestrune::testing

#endif
