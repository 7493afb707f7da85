#include "campaigns/operation.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "keys/trap.h"

namespace {

using namespace kestrune::testing;

constexpr int kMostDescriptors = 256;

std::array<char, 256> g_place{};
bool g_slept = false;

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
  std::array<pollfd, kMostDescriptors> all{};
  for (int fd = 0; fd < kMostDescriptors; ++fd) all[static_cast<unsigned>(fd)].fd = fd;
  (void)::poll(all.data(), all.size(), 0);
  return static_cast<int>(
      std::count_if(all.begin(), all.end(), [](const pollfd& at) { return (at.revents & POLLNVAL) == 0; }));
}

}  // namespace

// Sleeping for ever is a finding here.
void kestrune::SleepForEver() {
  g_slept = true;
}

// Called by the address sanitizer when it ends the program.
extern "C" void __asan_on_error() {
  TellPlace();
}

namespace kestrune::testing {

Trace RunOf(const Operation& operation) {
  g_slept = false;
  Trace trace;
  const int descriptors = OpenDescriptors();
  const long living = FailingMemory::Living();
  {
    const Outcome made = operation.run();
    const long own = made.output.capacity() > std::string().capacity() ? 1 : 0;
    trace.blocks = FailingMemory::Living() - own - living;
    trace.outcome = made;
  }
  trace.descriptors = OpenDescriptors() - descriptors;
  trace.slept = g_slept;
  return trace;
}

std::string FaultOf(const Operation& operation, const Trace& trace, const Outcome& clean) {
  const auto& [rc, output] = trace.outcome;
  if (trace.blocks != 0) return "blocks left over: " + std::to_string(trace.blocks);
  if (trace.descriptors != 0) return "descriptors left over: " + std::to_string(trace.descriptors);
  if (trace.slept) return "sleeps for ever";
  if (rc == kThrown) return "an exception";
  if (rc == kSpoiled) return "the object does not work any more";
  const bool is_kept =
      std::find(operation.kept.begin(), operation.kept.end(), output) != operation.kept.end();
  if (is_kept || (rc == clean.rc && output == clean.output)) return "";
  if (rc == kOk) return "code 0 with another output";
  return output.empty() ? "" : "code " + std::to_string(rc) + ", and an output";
}

void TellAtTheEnd(const std::string& place) {
#ifndef __SANITIZE_ADDRESS__
  static const bool is_set = [] {
    for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGALRM}) ::signal(number, TellPlaceAndEnd);
    return true;
  }();
  (void)is_set;
#endif
  std::snprintf(g_place.data(), g_place.size(), "ended in %s\n", place.c_str());
}

std::vector<Operation> Operations(const std::vector<std::string>& prefixes) {
  if (::access("/dev/shm", W_OK) == 0)
    ::setenv("TMPDIR", "/dev/shm", 1);  // the disk would take most of the time
  std::vector<Operation> chosen;
  for (const auto table :
       {KeyOperations, BlockOperations, MessageOperations, EnvelopeOperations, MailOperations}) {
    for (const Operation& operation : table()) {
      if (prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& prefix) {
            return operation.name.starts_with(prefix);
          }))
        chosen.push_back(operation);
    }
  }
  return chosen;
}

}  // namespace kestrune::testing
