// Lets the n-th allocation fail, for every n, in every operation of the table.
//
//   allocation_sweep [--all] [NAME...]
//
// Each operation runs once for each allocation that it makes, with that one failing, and once with that one and
// all behind it. It must answer with a code; what it hands out with code 0 must be what it hands out without the
// fault; with another code it hands out nothing. No exception, no block and no descriptor is left over. With names,
// only operations whose name begins so. Without --all, one allocation of each call stack is taken; with it, all.
//
// Before that, operations with a planted fault show that each kind of fault is found.
#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>

#include "campaigns/operation.h"
#include "campaigns/sweep.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

bool IsOneOf(const std::vector<long>& codes, long rc) {
  return std::find(codes.begin(), codes.end(), rc) != codes.end();
}

// One operation of the table, and what was found in it.
class Trial {
 public:
  Trial(const Operation& operation, bool quiet) : operation_(operation), findings_(quiet) {}

  int Run(bool every_one) {
    RunOnce(0, false);  // the C library allocates some things once and for all
    clean_ = RunOnce(0, false);
    if (clean_.rc != operation_.without_fault) Found("without a fault: code " + std::to_string(clean_.rc));
    for (const std::size_t nth : every_one ? EveryOne() : OneOfEachCallStack()) {
      for (const bool and_all_behind : {false, true}) {
        nth_ = nth;
        and_all_behind_ = and_all_behind;
        CheckCode(RunOnce(nth, and_all_behind).rc);
      }
    }
    nth_ = 0;
    const Outcome again = RunOnce(0, false);
    if (again.rc != clean_.rc || again.output != clean_.output) Found("without a fault: another result");
    return findings_.count();
  }
  std::size_t faults() const { return faults_; }
  std::size_t places() const { return allocations_; }

 private:
  std::vector<std::size_t> EveryOne() {
    FailingMemory::Plan(0);
    (void)operation_.run();
    allocations_ = FailingMemory::Count();
    std::vector<std::size_t> all(allocations_);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = i + 1;
    return all;
  }

  std::vector<std::size_t> OneOfEachCallStack() {
    FailingMemory::PlanRecording();
    (void)operation_.run();
    allocations_ = FailingMemory::Count();
    std::vector<std::size_t> chosen;
    std::set<std::uint64_t> seen;
    const std::vector<std::uint64_t> callers = FailingMemory::Callers();
    for (std::size_t i = 0; i < callers.size(); ++i) {
      if (seen.insert(callers[i]).second) chosen.push_back(i + 1);
    }
    return chosen;
  }

  Outcome RunOnce(std::size_t nth, bool and_all_behind) {
    TellAtTheEnd(operation_.name + ", n = " + std::to_string(nth) +
                 (and_all_behind ? " and all behind" : ""));
    FailingMemory::Plan(nth, and_all_behind);
    Trace trace = RunOf(operation_);
    faults_ += FailingMemory::HasFailed() ? 1 : 0;
    if (++runs_ == 1) return trace.outcome;  // the first one is left to the C library
    const std::string fault = FaultOf(operation_, trace, runs_ == 2 ? trace.outcome : clean_);
    if (!fault.empty()) Found(fault);
    return trace.outcome;
  }

  void CheckCode(long rc) {
    if (rc == kOk || rc == kThrown || rc == kSpoiled) return;  // told already, where it is to be
    if (rc != kNoObject && rc != clean_.rc && !IsOneOf(operation_.codes, rc))
      Found("code " + std::to_string(rc));
  }

  void Found(const std::string& what) {
    findings_.Add(operation_.name + ", n = " + std::to_string(nth_) +
                      (and_all_behind_ ? " and all behind" : "") + " of " + std::to_string(allocations_),
                  what);
  }

  const Operation& operation_;
  Outcome clean_;
  std::size_t nth_ = 0;
  bool and_all_behind_ = false;
  std::size_t allocations_ = 0;
  std::size_t faults_ = 0;
  int runs_ = 0;
  Findings findings_;
};

// Code 0 with half the text; an exception; a code with an output; a wrong code; a block and a descriptor that stay.
std::vector<Operation> PlantedFaults() {
  const auto copy = [](const char* text, CBuffer* out) {
    if (!out->Allocate(std::strlen(text) + 1)) return kNoObject;
    std::strcpy(out->text(), text);
    return kOk;
  };
  const auto text_of = [](const CBuffer& out) { return out ? std::string(out.text()) : std::string(); };
  return {
      {"swallowed",
       [=] {
         CBuffer first, second;
         const long rc = Watch([&] {
           (void)copy("first", &first);
           (void)copy("second", &second);
           return kOk;
         });
         return Outcome{rc, text_of(first) + text_of(second)};
       }},
      {"thrown",
       [] {
         return Outcome{Watch([] {
                          const std::string text(100, 'x');
                          asm volatile("" : : "r"(text.data()) : "memory");  // a compiler may leave it out
                          return static_cast<long>(text.size()) - 100;
                        }),
                        ""};
       }},
      {"handed out",
       [=] {
         CBuffer first, second;
         const long rc = Watch([&] {
           const Result failed = copy("first", &first);
           return failed == kOk ? copy("second", &second) : failed;
         });
         return Outcome{rc, text_of(first) + text_of(second)};
       }},
      {"another code",
       [=] {
         CBuffer only;
         return Outcome{Watch([&] { return copy("only", &only) == kOk ? kOk : file::kOpen; }), text_of(only)};
       }},
      {"left over",
       [=] {
         CBuffer first, second;
         const long rc = Watch([&] {
           if (copy("first", &first) != kOk) return kNoObject;
           if (copy("second", &second) == kOk) return kOk;
           static void* lost;  // reachable, so that no leak of this program is told
           std::free(lost);
           lost = first.release();
           return kNoObject;
         });
         return Outcome{rc, ""};
       }},
      {"left open",
       [=] {
         CBuffer only;
         return Outcome{Watch([&] {
                          if (copy("only", &only) == kOk) return kOk;
                          (void)!::open("/dev/null", O_RDONLY);
                          return kNoObject;
                        }),
                        text_of(only)};
       }},
  };
}

Trial TrialOf(const Operation& operation, bool quiet) {
  return {operation, quiet};
}

}  // namespace

int main(int argc, char** argv) {
  const Asked asked(argc, argv);
  ::setenv("TZ", "UTC0", 1);  // no zone table: the C library reads it anew for as long as memory fails
  if (!FindsEach(PlantedFaults(), TrialOf)) return EXIT_FAILURE;
  return SweepTable("allocation_sweep", "allocations", asked, TrialOf);
}
