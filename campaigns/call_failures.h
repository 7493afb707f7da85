// How system calls fail.
#ifndef KESTRUNE_CAMPAIGNS_CALL_FAILURES_H
#define KESTRUNE_CAMPAIGNS_CALL_FAILURES_H

#include <vector>

#include "campaigns/supervised_calls.h"

namespace kestrune::testing {

enum class Kind : unsigned char {
  kOpen,
  kRead,
  kWrite,
  kSync,
  kClose,
  kList,
  kChange,
  kLook,
  kLock,
  kControl,
  kRandom
};

struct Failure {
  const char* name = "";
  long result = 0;         // -errno, or what the call returns
  unsigned times = 1;      // this call and those of its kind behind it
  bool is_half = false;    // half of it is done
  bool is_unseen = false;  // whoever called cannot tell
};

// The calls that may fail.
std::vector<int> FailingCallNumbers();

// False for one that is left alone.
bool KindOf(const SystemCall& call, Kind* kind);

std::vector<Failure> FailuresOf(Kind kind);

}  // namespace kestrune::testing

#endif
