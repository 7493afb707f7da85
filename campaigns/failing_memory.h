// Allocations that fail when they are told to. A program that links failing_memory.cpp has its own malloc, calloc,
// realloc, free and operator new, also in what the C library and the cryptographic library allocate for it.
#ifndef KESTRUNE_CAMPAIGNS_FAILING_MEMORY_H
#define KESTRUNE_CAMPAIGNS_FAILING_MEMORY_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrune::testing {

class FailingMemory {
 public:
  // From the next Watched on, the `nth` allocation (from 1) fails; with `and_all_behind` all that follow, too.
  // 0: none fails.
  static void Plan(std::size_t nth, bool and_all_behind = false);

  // Plans no failure, and remembers from where each allocation comes.
  static void PlanRecording();

  static std::size_t Count();  // allocations watched since the plan was made
  static bool HasFailed();     // whether one of them failed
  static long Living();        // blocks that are allocated now, watched or not
  static std::vector<std::uint64_t>
  Callers();  // of each allocation since PlanRecording, a number for its call stack

  // Tells another process, too, when Watched ones live; null: nobody.
  static void ShareWatched(std::atomic<bool>* told);

  // While one lives, allocations count and may fail.
  class Watched {
   public:
    Watched();
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched();
  };
};

}  // namespace kestrune::testing

#endif
