// Visiting the cells of a tree without recursion and without memory of its own.
#ifndef KESTRUNE_BLOCKS_TREE_WALK_H
#define KESTRUNE_BLOCKS_TREE_WALK_H

#include <utility>

#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/utils.h"

// Visits `start`, what is below it and, if wanted, its next blocks: a cell, its sub-blocks, its next blocks.
//   bool enter(Cell&)  before the sub-blocks; false passes them over
//   bool leave(Cell&)  after the sub-blocks; false passes the next blocks over
// The way back up is noted in the cells on the way down. Nothing is noted in `start`, so a visitor may walk
// the tree below the cell that it is at.
template <class Cell, class Enter, class Leave>
void TypV2BlockCell::Walk(Cell* start, bool with_next_blocks, Enter&& enter, Leave&& leave) {
  unsigned long long depth = 0;
  Cell* cell = start;
  for (;;) {
    if (enter(*cell) && cell->sub_ != nullptr) {
      cell->sub_->up_ = cell;
      cell = cell->sub_;
      ++depth;
      continue;
    }
    for (;;) {
      const bool on = leave(*cell) && (depth > 0 || with_next_blocks);
      if (on && cell->next_ != nullptr) {
        cell->next_->up_ = cell->up_;
        cell = cell->next_;
        break;
      }
      if (depth == 0) return;
      cell = const_cast<Cell*>(cell->up_);  // it was noted as a Cell*
      --depth;
    }
  }
}

// Visits the same cells in the same order, for visitors with nothing to do on the way back: `visit(Cell&)` is
// called once for each. Only cells that have next blocks as well as sub-blocks are written to, so that
// measuring a large tree is one pass over its memory.
template <class Cell, class Visit>
void TypV2BlockCell::ForEach(Cell* start, bool with_next_blocks, Visit&& visit) {
  Cell* waiting = nullptr;  // its next blocks are still to come; behind it the one whose come after those
  Cell* cell = start;
  while (cell != nullptr) {
    visit(*cell);
    const bool has_next = cell->next_ != nullptr && (cell != start || with_next_blocks);
    if (cell->sub_ != nullptr) {
      if (has_next) cell->up_ = std::exchange(waiting, cell);
      cell = cell->sub_;
    } else if (has_next) {
      cell = cell->next_;
    } else if (waiting != nullptr) {
      cell = waiting->next_;
      waiting = const_cast<Cell*>(waiting->up_);
    } else {
      cell = nullptr;
    }
  }
}

namespace kestrune {

// The toolbox that the factory of a cell makes. The cells of a tree share their factory, so one toolbox
// serves the whole walk; a cell with another factory gets that one's.
class UtilsOfCells {
 public:
  // Null when the factory refuses.
  TypV2Utils* Of(TypV2InstanceCreator* creator) {
    if (creator == creator_ && utils_) return utils_.get();
    creator_ = creator;
    utils_ = Owned<TypV2Utils>(creator == nullptr ? nullptr : creator->newTypV2Utils());
    if (utils_.Init() != kOk) utils_ = Owned<TypV2Utils>();
    return utils_.get();
  }

 private:
  TypV2InstanceCreator* creator_ = nullptr;
  Owned<TypV2Utils> utils_;
};

}  // namespace kestrune

#endif
