// Operations that are made under the watch of freed_memory.h, and what is said of them.
#ifndef KESTRUNE_CAMPAIGNS_LEFTOVER_TRIAL_H
#define KESTRUNE_CAMPAIGNS_LEFTOVER_TRIAL_H

#include <functional>
#include <memory>
#include <string>

#include "campaigns/freed_memory.h"
#include "campaigns/marked_yard.h"

namespace kestrune::testing {

inline constexpr std::size_t kOutBytes = 20000;

// A text that the library changes or fills, not on the stack.
struct Text {
  Text() : bytes(new char[kOutBytes]()) {}
  explicit Text(const std::string& content) : Text() { content.copy(bytes.get(), kOutBytes - 1); }
  char* get() const { return bytes.get(); }
  std::unique_ptr<char[]> bytes;
};

class Trial {
 public:
  explicit Trial(const MarkedYard& yard) : yard_(yard) {}

  // One operation; `wanted` is the code that it must give.
  void Run(const std::string& name, long wanted, const std::function<long()>& operation);
  // The same, once unwatched to learn what it draws.
  void LearnAndRun(const std::string& name, const std::function<long()>& operation,
                   const std::function<void()>& learn);

  void Fail(const std::string& what);
  int failures() const { return failures_; }
  int operations() const { return operations_; }

 private:
  void Tell(const std::string& name, const Leftover& leftover);
  void SetOut() const;

  const MarkedYard& yard_;
  int failures_ = 0;
  int operations_ = 0;
};

// What is refused, and what else holds a secret for a while.
void OtherLeftovers(MarkedYard& yard, Trial* trial);

}  // namespace kestrune::testing

#endif
