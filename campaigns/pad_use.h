// What campaigns that hand out pad bytes look at in the end.
#ifndef KESTRUNE_CAMPAIGNS_PAD_USE_H
#define KESTRUNE_CAMPAIGNS_PAD_USE_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/sealed_body.h"

namespace kestrune::testing {

// Ends the program, in whatever thread.
inline void OrStop(bool fine, const std::string& what) {
  if (fine) return;
  std::printf("FAILED: %s\n", what.c_str());
  std::fflush(stdout);
  std::_Exit(EXIT_FAILURE);
}

inline void OrStopIf(const std::string& found) {
  OrStop(found.empty(), found);
}

// The bytes of one pad that were handed out. It must not have started again.
class PadUse {
 public:
  void Add(std::uint64_t begin, std::uint64_t length) { runs_.emplace_back(begin, length); }

  // The first two runs that share bytes; "" when none do.
  std::string Twice(const std::string& what) {
    std::sort(runs_.begin(), runs_.end());
    for (std::size_t i = 1; i < runs_.size(); ++i) {
      const auto [before, length_before] = runs_[i - 1];
      const auto [begin, length] = runs_[i];
      if (begin - before < length_before)
        return what + " handed out twice: " + std::to_string(length_before) + " from " +
               std::to_string(before) + " and " + std::to_string(length) + " from " + std::to_string(begin);
    }
    return "";
  }

 private:
  std::vector<std::pair<std::uint64_t, std::uint64_t>> runs_;
};

// The bytes that sealed bodies took of a personal key.
class PersonalUse {
 public:
  void Add(const SealedParts& parts, std::uint64_t sealed_bytes) {
    constexpr std::uint64_t kOneTimePasswordBytes = 32;
    first_.Add(parts.run_offset, sealed_bytes);
    second_.Add(parts.password_offset, kOneTimePasswordBytes);
    ++bodies_;
  }
  std::size_t bodies() const { return bodies_; }

  // What was handed out twice; "" when nothing was.
  std::string Twice() {
    const std::string first = first_.Twice("bytes of the first pad");
    return first.empty() ? second_.Twice("a one-time password") : first;
  }

 private:
  PadUse first_, second_;
  std::size_t bodies_ = 0;
};

// The same of the master key.
class MasterUse {
 public:
  void Add(const SealedParts& parts, std::uint64_t sealed_bytes) {
    constexpr std::uint64_t kHeadBytes = 24;  // which it does not mask
    pad_.Add(parts.master_offset, sealed_bytes - kHeadBytes);
  }
  std::string Twice() { return pad_.Twice("bytes of the master pad"); }

 private:
  PadUse pad_;
};

}  // namespace kestrune::testing

#endif
