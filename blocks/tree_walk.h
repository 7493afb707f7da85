// Visiting the cells of a tree: no recursion, no memory, nothing written.
#ifndef KESTRUNE_BLOCKS_TREE_WALK_H
#define KESTRUNE_BLOCKS_TREE_WALK_H

#include <type_traits>

#include "blocks/block_cell.h"

namespace kestrune {

// For walks with nothing to do behind the sub-blocks.
struct NothingToLeave {};

}  // namespace kestrune

// Visits `start`, what is below it and, if wanted, its next blocks: a cell, its sub-blocks, its next blocks.
//   bool enter(Cell&)  before the sub-blocks; false passes them over
//   bool leave(Cell&)  after the sub-blocks; false passes the next blocks over
// With nothing to leave, the walk ends at the last cell instead of going all the way back up.
template <class Cell, class Enter, class Leave>
void TypV2BlockCell::Walk(Cell* start, bool with_next_blocks, Enter&& enter, Leave&& leave) {
  constexpr bool kGoesBack = !std::is_same_v<std::remove_cvref_t<Leave>, kestrune::NothingToLeave>;
  unsigned long long depth = 0;
  unsigned long long waiting = 0;  // cells above whose next blocks are still to come
  Cell* cell = start;
  for (;;) {
    if (enter(*cell) && cell->sub_ != nullptr) {
      waiting += cell->next_ != nullptr && (depth > 0 || with_next_blocks) ? 1 : 0;
      cell = cell->sub_;
      ++depth;
      continue;
    }
    for (;;) {
      bool on = depth > 0 || with_next_blocks;
      if constexpr (kGoesBack) on = leave(*cell) && on;
      if (on && cell->next_ != nullptr) break;
      if (depth == 0 || (!kGoesBack && waiting == 0)) return;
      cell = cell->up_;
      --depth;
      if (!kGoesBack && cell->next_ != nullptr) --waiting;
    }
    cell = cell->next_;
  }
}

#endif
