// Lets the n-th system call fail, for every n and in each way that its kind knows, in every operation of the table.
//
//   failing_calls [--all] [NAME...]
//
// The operations run in a child; its parent sees each of its calls before the system does, the C library's too, and
// answers the chosen one in the system's stead. What interrupts (EINTR) or does half (a short read or write) must not
// be seen at all, however often it happens. Everything else must end in a code that the function has a meaning for, or
// change nothing: code 0 stands for the same output as ever. No exception, no block and no descriptor is left
// over, and the next run is as the first one was. Without --all, a call is chosen once for each file that it concerns.
//
// Before that, operations with a planted fault show that each kind of fault is found.
#include <fcntl.h>
#include <kestrune/kestrune.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <set>

#include "campaigns/call_failures.h"
#include "campaigns/operation.h"
#include "campaigns/pad_use.h"
#include "campaigns/supervised_calls.h"
#include "campaigns/sweep.h"
#include "core/result.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr unsigned kDeadlineSeconds = 60;  // for one run
constexpr std::size_t kMostCalls = 1U << 14;

// ---- Parent and child ----------------------------------------------------------------------------------

// A call that was seen: enough to choose it.
struct Seen {
  Kind kind = Kind::kOpen;
  int number = 0;
  std::size_t path = 0;  // a number that stands for it

  auto operator<=>(const Seen&) const = default;
};

// What both see. The child plans while nothing is watched, the parent writes down while something is.
struct Plan {
  std::atomic<bool> is_watched;
  std::size_t chosen;  // number of the call, from 0; kMostCalls: none
  Failure failure;
  std::size_t count;
  unsigned failed;
  int left_open;  // descriptors whose closing was answered and not done; they are the child's to close
  int to_close[kMostCalls];
  Seen seen[kMostCalls];
};

Answer AnswerOf(const SystemCall& call, Plan& plan) {
  Kind kind{};
  if (!plan.is_watched || !KindOf(call, &kind) || plan.count == kMostCalls) return {};
  // What the library prints is not promised to anybody.
  if (kind == Kind::kWrite && call.Descriptor() <= STDERR_FILENO) return {};
  const std::size_t index = plan.count++;
  const bool has_path = call.number == SYS_openat || call.number == SYS_newfstatat;
  plan.seen[index] = {kind, call.number,
                      std::hash<std::string>()(has_path ? call.Text(1) : call.PathOf(call.Descriptor()))};
  if (plan.chosen == kMostCalls || index < plan.chosen || kind != plan.seen[plan.chosen].kind ||
      plan.failed >= plan.failure.times)
    return {};
  ++plan.failed;
  if (plan.failure.is_half)
    return call.number == SYS_read || call.number == SYS_write ? Instead(call.MakeHalf()) : Answer{};
  if (kind == Kind::kClose) plan.to_close[plan.left_open++] = call.Descriptor();
  return Instead(plan.failure.result);
}

// ---- What is found -------------------------------------------------------------------------------------

// The function of which a row of the table is one use.
std::string FunctionOf(const std::string& name) {
  return name.substr(0, name.find_first_of(", "));
}

bool HasMeaning(const Operation& operation, long rc) {
  const std::string function = FunctionOf(operation.name);
  // The steps of the envelope hand on the codes of what they call.
  if (function.starts_with("TypV2CryptoInterface")) return kestrune_code_list(rc, 0, "en") != nullptr;
  return rc == kNoObject ||
         std::find(operation.codes.begin(), operation.codes.end(), rc) != operation.codes.end() ||
         kestrune_code_find(function.c_str(), rc, "en") != nullptr;
}

class Trial {
 public:
  Trial(const Operation& operation, Plan& plan, bool quiet)
      : operation_(operation), plan_(plan), findings_(quiet) {}

  int Run(bool every_one) {
    RunOnce();  // the C library does some things once and for all
    clean_ = RunOnce().outcome;
    if (clean_.rc != operation_.without_fault) Found("without a fault: code " + std::to_string(clean_.rc));
    const std::vector<Seen> seen(plan_.seen, plan_.seen + plan_.count);
    calls_ = seen.size();
    std::set<Seen> sites;
    for (chosen_ = 0; chosen_ < seen.size(); ++chosen_) {
      if (!every_one && !sites.insert(seen[chosen_]).second) continue;
      for (const Failure& failure : FailuresOf(seen[chosen_].kind)) {
        failure_ = failure;
        Check(RunOnce());
      }
    }
    chosen_ = kMostCalls;
    Check(RunOnce());
    return findings_.count();
  }
  std::size_t places() const { return calls_; }
  std::size_t faults() const { return faults_; }

 private:
  Trace RunOnce() {
    TellAtTheEnd(Place());
    plan_.chosen = chosen_;
    plan_.failure = failure_;
    plan_.count = 0;
    plan_.failed = 0;
    plan_.left_open = 0;
    ::alarm(kDeadlineSeconds);
    FailingMemory::Plan(0);
    Trace trace = RunOf(operation_);
    ::alarm(0);
    faults_ += plan_.failed > 0 ? 1 : 0;
    for (int i = 0; i < plan_.left_open; ++i) ::close(plan_.to_close[i]);
    trace.descriptors -= plan_.left_open;
    return trace;
  }

  void Check(const Trace& trace) {
    const Outcome& outcome = trace.outcome;
    const bool is_told_before = failure_.times == 0 || chosen_ == kMostCalls;
    if (is_told_before || failure_.is_unseen) {
      if (outcome.rc != clean_.rc || outcome.output != clean_.output)
        Found("code " + std::to_string(outcome.rc) + (outcome.rc == clean_.rc ? " with another output" : ""));
      return;
    }
    // The output does not show it: what blinds leaves no trace in a signature.
    const bool is_whole = outcome.rc == kOk && outcome.output == clean_.output;
    if (is_whole && plan_.seen[chosen_].kind == Kind::kRandom) return Found("done without random bytes");
    const std::string fault = FaultOf(operation_, Promised(trace), Promised(clean_));
    if (!fault.empty()) return Found(fault);
    if (outcome.rc != kOk && outcome.rc != clean_.rc && !HasMeaning(operation_, outcome.rc))
      Found("code " + std::to_string(outcome.rc) + ", which " + FunctionOf(operation_.name) +
            " gives no meaning");
  }

  Outcome Promised(const Outcome& outcome) const {
    if (!operation_.promised || outcome.rc != kOk) return outcome;
    return {outcome.rc, operation_.promised(outcome.output)};
  }
  Trace Promised(Trace trace) const {
    trace.outcome = Promised(trace.outcome);
    return trace;
  }

  std::string Place() const {
    if (chosen_ == kMostCalls) return operation_.name + ", without a fault";
    return operation_.name + ", call " + std::to_string(chosen_ + 1) + " of " + std::to_string(calls_) +
           " (number " + std::to_string(plan_.seen[chosen_].number) + "), " + failure_.name;
  }

  void Found(const std::string& what) { findings_.Add(Place(), what); }

  const Operation& operation_;
  Plan& plan_;
  Outcome clean_;
  std::size_t chosen_ = kMostCalls;
  Failure failure_{.name = "", .times = 0};
  std::size_t calls_ = 0, faults_ = 0;
  Findings findings_;
};

// A read that fails and is not told; an interruption that is; half a text, with code 0; a descriptor that stays; a
// code without a meaning.
std::vector<Operation> PlantedFaults() {
  const auto read = [](const std::function<long(int, std::string*)>& how) {
    std::string text;
    const long rc = Watch([&] {
      const int fd = ::open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
      if (fd < 0) return static_cast<long>(file::kOpen);
      const long done = how(fd, &text);
      ::close(fd);
      return done;
    });
    return Outcome{rc, rc == kOk ? text : ""};
  };
  const auto some = [](int fd, std::string* text) {
    text->resize(8);
    return ::read(fd, text->data(), text->size());
  };
  using Rows = std::vector<Operation>;
  return Rows{
      {"TypV2FileRef, swallowed",
       [=] { return read([=](int fd, std::string* text) { return some(fd, text), kOk; }); }},
      {"TypV2FileRef, half",
       [=] {
         return read([=](int fd, std::string* text) { return some(fd, text) > 0 ? kOk : file::kRead; });
       }},
      {"TypV2FileRef, another code",
       [=] { return read([=](int fd, std::string* text) { return some(fd, text) == 8 ? kOk : -12345; }); }},
      {"TypV2FileRef, left open",
       [=] {
         return read([=](int fd, std::string* text) {
           if (some(fd, text) == 8) return static_cast<long>(kOk);
           (void)!::dup(fd);
           return static_cast<long>(file::kRead);
         });
       }},
  };
}

// The child's work.
int Sweep(Plan& plan, const Asked& asked) {
  const auto trial_of = [&](const Operation& operation, bool quiet) { return Trial(operation, plan, quiet); };
  FailingMemory::ShareWatched(&plan.is_watched);
  if (!FindsEach(PlantedFaults(), trial_of)) return EXIT_FAILURE;
  return SweepTable("failing_calls", "calls", asked, trial_of);
}

}  // namespace

int main(int argc, char** argv) {
  const Asked asked(argc, argv);
  if (!SupervisedChild::IsPossible()) {
    std::puts("failing_calls: left out, no system calls are supervised here");
    return kLeftOut;
  }
  void* const memory =
      ::mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  OrStop(memory != MAP_FAILED, "no memory");
  Plan& plan = *new (memory) Plan{};
  SupervisedChild child(FailingCallNumbers(), [&] { return Sweep(plan, asked); });
  const int status = child.Run([&](const SystemCall& call) { return AnswerOf(call, plan); });
  return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}
