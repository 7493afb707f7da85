// What the sweeps have in common: what they are asked for, whether they find planted faults, and the way through the
// table of operations.
#ifndef KESTRUNE_CAMPAIGNS_SWEEP_H
#define KESTRUNE_CAMPAIGNS_SWEEP_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "campaigns/operation.h"

namespace kestrune::testing {

// What is wrong with one operation; the first few are printed.
class Findings {
 public:
  explicit Findings(bool quiet) : quiet_(quiet) {}
  void Add(const std::string& place, const std::string& what) {
    constexpr int kMostPrinted = 60;
    if (++count_ <= kMostPrinted && !quiet_)
      std::fprintf(stderr, "FAILED: %s: %s\n", place.c_str(), what.c_str());
  }
  int count() const { return count_; }

 private:
  const bool quiet_;
  int count_ = 0;
};

// [--all] [NAME...]
struct Asked {
  bool every_one = false;
  std::vector<std::string> prefixes;

  Asked(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      if (std::string_view(argv[i]) == "--all") {
        every_one = true;
      } else {
        prefixes.emplace_back(argv[i]);
      }
    }
  }
  bool IsFor(const std::string& name) const {
    return prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& prefix) {
             return name.starts_with(prefix);
           });
  }
};

// A trial of one operation or command, made by `trial_of(operation, quiet)`: Run(every_one) returns how much it found, places() and
// faults() how many places for a fault it saw and how many runs had one.
template <class Tried, class TrialOf>
bool FindsEach(const std::vector<Tried>& planted_faults, const TrialOf& trial_of) {
  bool found_all = true;
  for (const Tried& planted : planted_faults) {
    if (trial_of(planted, true).Run(true) > 0) continue;
    std::fprintf(stderr, "FAILED: the planted fault \"%s\" is not found\n", planted.name.c_str());
    found_all = false;
  }
  return found_all;
}

// The program's status. `what` is the word for what is tried, `places` for places.
template <class Tried, class TrialOf>
int SweepThrough(const std::vector<Tried>& table, const char* program, const char* what, const char* places,
                 bool every_one, const TrialOf& trial_of) {
  int findings = 0;
  std::size_t seen = 0, faults = 0;
  for (const Tried& tried : table) {
    auto trial = trial_of(tried, false);
    findings += trial.Run(every_one);
    seen += trial.places();
    faults += trial.faults();
  }
  std::fprintf(stderr, "%s: %zu %s, %zu %s, %zu runs with a fault, %d findings\n", program, table.size(),
               what, seen, places, faults, findings);
  return findings == 0 && !table.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

template <class TrialOf>
int SweepTable(const char* program, const char* places, const Asked& asked, const TrialOf& trial_of) {
  // Traces and results that the library prints: a table's operation reads back what it wants of them.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return EXIT_FAILURE;
  return SweepThrough(Operations(asked.prefixes), program, "operations", places, asked.every_one, trial_of);
}

}  // namespace kestrune::testing

#endif
