#include "campaigns/leftover_trial.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "core/result.h"

namespace {

// The clock of this program.
const std::time_t kBeginning = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
std::time_t moment = kBeginning;

}  // namespace

extern "C" std::time_t time(std::time_t* out) {
  if (out != nullptr) *out = moment;
  return moment;
}

namespace kestrune::testing {

void Trial::Run(const std::string& name, long wanted, const std::function<long()>& operation) {
  long rc = 0;
  const std::vector<Leftover> leftovers = LeftoversOf(yard_.marks, [&] {
    SetOut();
    rc = operation();
  });
  if (rc != wanted) Fail(name + " gave " + std::to_string(rc) + ", not " + std::to_string(wanted));
  for (const Leftover& leftover : leftovers) Tell(name, leftover);
  ++operations_;
}

void Trial::LearnAndRun(const std::string& name, const std::function<long()>& operation,
                        const std::function<void()>& learn) {
  SetOut();
  if (operation() != kOk) Fail(name + " failed unwatched");
  learn();
  Run(name, kOk, operation);
}

void Trial::Fail(const std::string& what) {
  std::printf("FAILED: %s\n", what.c_str());
  ++failures_;
}

void Trial::Tell(const std::string& name, const Leftover& leftover) {
  const std::string& secret = yard_.marks[leftover.mark].secret;
  if (leftover.block_bytes == 0) {
    Fail(name + " left <" + secret + "> in its stack, " + std::to_string(leftover.offset) + " bytes deep");
    return;
  }
  Fail(name + " freed <" + secret + "> at " + std::to_string(leftover.offset) + " of " +
       std::to_string(leftover.block_bytes) + " bytes:\n" + CallersOf(leftover));
}

// What an operation draws becomes known by drawing the same again, and no other one draws it: the library
// draws from the moment on when it has scrubbed something.
void Trial::SetOut() const {
  std::srand(static_cast<unsigned>(operations_) + 1);
  moment = kBeginning + operations_;
}

}  // namespace kestrune::testing
