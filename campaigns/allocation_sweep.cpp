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
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

#include "campaigns/operation.h"
#include "keys/trap.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr int kMostDescriptors = 256;
constexpr int kMostFindingsPrinted = 6;  // of one operation

std::array<char, 256> g_place{};  // what runs now, for whoever ends the program
bool g_trapped = false;

void TellPlace() {
  (void)!::write(STDERR_FILENO, g_place.data(), std::strlen(g_place.data()));
}

#ifndef __SANITIZE_ADDRESS__  // which tells itself, see below
void TellPlaceAndEnd(int number) {
  TellPlace();
  ::signal(number, SIG_DFL);
  ::raise(number);
}
#endif

int OpenDescriptors() {
  int count = 0;
  for (int fd = 0; fd < kMostDescriptors; ++fd) count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

bool IsOneOf(const std::vector<long>& codes, long rc) {
  return std::find(codes.begin(), codes.end(), rc) != codes.end();
}

// One operation of the table, and what was found in it.
class Trial {
 public:
  Trial(const Operation& operation, bool quiet) : operation_(operation), quiet_(quiet) {}

  int Run(bool every_one) {
    RunOnce(0, false);  // the C library allocates some things once and for all
    clean_ = RunOnce(0, false);
    if (clean_.rc != operation_.without_fault) Found("without a fault: code " + std::to_string(clean_.rc));
    for (const std::size_t nth : every_one ? EveryOne() : OneOfEachCallStack()) {
      for (const bool and_all_behind : {false, true}) {
        nth_ = nth;
        and_all_behind_ = and_all_behind;
        Check(RunOnce(nth, and_all_behind));
      }
    }
    nth_ = 0;
    const Outcome again = RunOnce(0, false);
    if (again.rc != clean_.rc || again.output != clean_.output) Found("without a fault: another result");
    return findings_;
  }
  std::size_t faults() const { return faults_; }
  std::size_t allocations() const { return allocations_; }

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
    std::snprintf(g_place.data(), g_place.size(), "allocation_sweep: ended in %s, n = %zu%s\n",
                  operation_.name.c_str(), nth, and_all_behind ? " and all behind" : "");
    g_trapped = false;
    FailingMemory::Plan(nth, and_all_behind);
    const int descriptors = OpenDescriptors();
    const long living = FailingMemory::Living();
    long living_after = 0;
    Outcome outcome;
    {
      const Outcome made = operation_.run();
      faults_ += FailingMemory::HasFailed() ? 1 : 0;
      const long own = made.output.capacity() > std::string().capacity() ? 1 : 0;
      living_after = FailingMemory::Living() - own;
      outcome = made;
    }
    // The first run is left to the C library.
    if (++runs_ > 1 && living_after != living)
      Found("blocks left over: " + std::to_string(living_after - living));
    if (OpenDescriptors() != descriptors) Found("descriptors left over");
    if (g_trapped) Found("sleeps for ever");
    return outcome;
  }

  void Check(const Outcome& outcome) {
    const long rc = outcome.rc;
    if (rc == kThrown) return Found("an exception");
    if (rc == kSpoiled) return Found("the object does not work any more");
    const bool is_kept =
        std::find(operation_.kept.begin(), operation_.kept.end(), outcome.output) != operation_.kept.end();
    if (rc == clean_.rc && (outcome.output == clean_.output || is_kept)) return;
    if (rc == kOk) return Found("code 0 with another output");
    if (rc != kNoObject && rc != clean_.rc && !IsOneOf(operation_.codes, rc))
      Found("code " + std::to_string(rc));
    if (!outcome.output.empty() && !is_kept) Found("code " + std::to_string(rc) + ", and an output");
  }

  void Found(const std::string& what) {
    if (++findings_ > kMostFindingsPrinted || quiet_) return;
    std::fprintf(stderr, "FAILED: %s, n = %zu%s of %zu: %s\n", operation_.name.c_str(), nth_,
                 and_all_behind_ ? " and all behind" : "", allocations_, what.c_str());
  }

  const Operation& operation_;
  bool quiet_;
  Outcome clean_;
  std::size_t nth_ = 0;
  bool and_all_behind_ = false;
  std::size_t allocations_ = 0;
  std::size_t faults_ = 0;
  int runs_ = 0;
  int findings_ = 0;
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
         return Outcome{Watch([] { return static_cast<long>(std::string(100, 'x').size()) - 100; }), ""};
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

bool FindsPlantedFaults() {
  bool found_all = true;
  for (const Operation& planted : PlantedFaults()) {
    if (Trial(planted, true).Run(true) > 0) continue;
    std::fprintf(stderr, "FAILED: the planted fault \"%s\" is not found\n", planted.name.c_str());
    found_all = false;
  }
  return found_all;
}

bool IsChosen(const std::string& name, const std::vector<std::string>& prefixes) {
  return prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(),
                                         [&](const std::string& prefix) { return name.starts_with(prefix); });
}

}  // namespace

// Sleeping for ever is a finding here.
void kestrune::SleepForEver() {
  g_trapped = true;
}

// Called by the address sanitizer when it ends the program.
extern "C" void __asan_on_error() {
  TellPlace();
}

int main(int argc, char** argv) {
  bool every_one = false;
  std::vector<std::string> prefixes;
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--all") {
      every_one = true;
    } else {
      prefixes.emplace_back(argv[i]);
    }
  }
#ifndef __SANITIZE_ADDRESS__
  for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGALRM}) ::signal(number, TellPlaceAndEnd);
#endif
  if (::access("/dev/shm", W_OK) == 0)
    ::setenv("TMPDIR", "/dev/shm", 1);  // the disk would take most of the time
  ::setenv("TZ", "UTC0", 1);  // no zone table: the C library reads it anew for as long as memory fails
  if (!FindsPlantedFaults()) return EXIT_FAILURE;

  // Traces and results that the library prints: a table's operation reads back what it wants of them.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return EXIT_FAILURE;
  int findings = 0;
  std::size_t operations = 0, allocations = 0, faults = 0;
  for (const auto table : {KeyOperations, BlockOperations, MessageOperations, MailOperations}) {
    for (const Operation& operation : table()) {
      if (!IsChosen(operation.name, prefixes)) continue;
      Trial trial(operation, false);
      findings += trial.Run(every_one);
      ++operations;
      allocations += trial.allocations();
      faults += trial.faults();
    }
  }
  std::fprintf(stderr,
               "allocation_sweep: %zu operations, %zu allocations, %zu runs with a fault, %d findings\n",
               operations, allocations, faults, findings);
  return findings == 0 && operations > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
