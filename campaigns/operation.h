// What the sweeps let fail, of memory or of system calls: a table of operations.
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
  // whatever goes wrong in it. A system call that failed may end in any code that the function has a meaning for.
  std::vector<long> codes = {};

  // What stands in the output when the operation has no code to tell of its failure, or keeps to its contract by
  // another output; and why that is so.
  std::vector<std::string> kept = {};
  std::string reason = "";

  long without_fault = kOk;  // the code of a run with all that it wants

  // Where a file that cannot be read, or not be written whole, need not end in a code (system calls that fail
  // alone): what of the output with code 0 is the same all the same. The contract says so in kestrune.h.
  std::function<std::string(const std::string&)> promised = nullptr;
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

// A run, and what it left behind.
struct Trace {
  Outcome outcome;
  long blocks = 0;      // of memory, more than before
  int descriptors = 0;  // the same
  bool slept = false;   // for ever, as the trap does: here it returns
};
Trace RunOf(const Operation& operation);

// What is wrong with an outcome, `clean` being the one of a run without a fault; "" when nothing is. Its code aside.
std::string FaultOf(const Operation& operation, const Trace& trace, const Outcome& clean);

// What whoever ends the program is to print of it, in one line.
void TellAtTheEnd(const std::string& place);

// The operations whose names begin with one of these, or all; in folders in memory where the system has some.
std::vector<Operation> Operations(const std::vector<std::string>& prefixes);

std::vector<Operation> KeyOperations();
std::vector<Operation> MessageOperations();
std::vector<Operation> EnvelopeOperations();
std::vector<Operation> BlockOperations();
std::vector<Operation> MailOperations();

}  // namespace kestrune::testing

#endif
