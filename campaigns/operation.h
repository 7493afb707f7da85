// What the sweep lets run out of memory: a table of operations.
#ifndef KESTRUNE_CAMPAIGNS_OPERATION_H
#define KESTRUNE_CAMPAIGNS_OPERATION_H

#include <functional>
#include <string>
#include <vector>

#include "campaigns/failing_memory.h"
#include "core/owned.h"
#include "core/result.h"

namespace kestrune::testing {

inline constexpr long kThrown = 1'000'000;   // an exception left the call: no code of the library
inline constexpr long kSpoiled = 1'000'001;  // after its failure, the object did not work any more

// One run: the code, and everything that was handed out as one text; empty when nothing was.
struct Outcome {
  long rc = 0;
  std::string output;
};

struct Operation {
  std::string name;

  // Does the same thing each time, with memory that fails in its calls of Watch alone. What it received it gives
  // back.
  std::function<Outcome()> run;

  // The codes beside -96 that an allocation that failed may end in: those of a step that has one code for
  // whatever goes wrong in it.
  std::vector<long> codes = {};

  // What stands in the output when the operation has no code to tell of its failure, or keeps to its contract by
  // another output; and why that is so.
  std::vector<std::string> kept = {};
  std::string reason = "";

  long without_fault = kOk;  // the code of a run with all the memory that it wants
};

// Calls the library under the memory that is planned.
template <class Call>
long Watch(Call&& call) {
  const FailingMemory::Watched watched;
  try {
    return call();
  } catch (...) {
    return kThrown;
  }
}

std::vector<Operation> KeyOperations();
std::vector<Operation> MessageOperations();
std::vector<Operation> BlockOperations();
std::vector<Operation> MailOperations();

}  // namespace kestrune::testing

#endif
