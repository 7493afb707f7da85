// Watching what the library leaves behind: marked secrets in memory that was freed and in stacks that were used.
#ifndef KESTRUNE_CAMPAIGNS_FREED_MEMORY_H
#define KESTRUNE_CAMPAIGNS_FREED_MEMORY_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "campaigns/marked_yard.h"

namespace kestrune::testing {

// A mark that was found.
struct Leftover {
  static constexpr int kFrames = 12;
  std::size_t mark = 0;
  std::size_t block_bytes = 0;  // 0: it lay in the stack
  std::size_t offset = 0;       // in the block, or from the stack's top downwards
  void* callers[kFrames] = {};  // who freed the block
  int caller_count = 0;
};

// Runs an operation in a thread with a stack of its own and gives the marks that its freed memory, and
// its stack when it is over, still held: each mark once for each place that freed it, and once for the stack.
// What a library other than ours and the C and C++ ones freed by itself is not looked at.
std::vector<Leftover> LeftoversOf(const std::vector<Mark>& marks, const std::function<void()>& operation);

// The functions that called free(), one line for each.
std::string CallersOf(const Leftover& leftover);

}  // namespace kestrune::testing

#endif
