// Visiting the blocks of an opened message.
#ifndef KESTRUNE_MAIL_TREE_WALK_H
#define KESTRUNE_MAIL_TREE_WALK_H

#include <string_view>
#include <vector>

#include "blocks/block_cell.h"
#include "core/result.h"

namespace kestrune::mail {

// Visits a block, then its next blocks (each with all that is below it, the last one's first), then what is
// below the block itself. That order decides the order of the texts and attachments in the mail. A visit
// that returns a failure ends the walk. Trees may be a million cells long or deep: what is still to be
// visited stands on the heap (std::bad_alloc when there is no memory).
template <class Visit>
Result VisitBlocks(const TypV2BlockCell* first, Visit&& visit) {
  std::vector<const TypV2BlockCell*> waiting_chains = {first};
  while (!waiting_chains.empty()) {
    const TypV2BlockCell* cell = waiting_chains.back();
    waiting_chains.pop_back();
    for (; cell != nullptr; cell = cell->GetNextBlock()) {
      if (const Result rc = visit(*cell); rc != kOk) return rc;
      if (const TypV2BlockCell* below = cell->GetSubBlock(); below != nullptr)
        waiting_chains.push_back(below);
    }
  }
  return kOk;
}

inline bool HasBlockName(const TypV2BlockCell& cell, std::string_view wanted) {
  constexpr std::size_t kNameBytes = 6;
  char name[kNameBytes] = {};
  return cell.GetBlockName(name) == kOk && wanted == name;
}

}  // namespace kestrune::mail

#endif
