// Visiting the blocks of an opened message.
#ifndef KESTRUNE_MAIL_BLOCK_VISIT_H
#define KESTRUNE_MAIL_BLOCK_VISIT_H

#include <string_view>

#include "blocks/block_cell.h"
#include "blocks/tree_links.h"
#include "core/result.h"

namespace kestrune::mail {

// The block that VisitBlocks visits after `cell`, or null. At the end of a chain the way goes back along it,
// down where there is something below a block, and in the end up to the block that the chain is below.
inline const TypV2BlockCell* BlockAfter(const TypV2BlockCell* cell, const TypV2BlockCell* first) {
  if (TreeLinks::Next(*cell) != nullptr) return TreeLinks::Next(*cell);
  while (TreeLinks::Below(*cell) == nullptr) {
    while (cell != first && TreeLinks::Previous(*cell) == nullptr) cell = TreeLinks::Above(*cell);
    if (cell == first) return nullptr;
    cell = TreeLinks::Previous(*cell);
  }
  return TreeLinks::Below(*cell);
}

// Visits a block, then its next blocks (each with all that is below it, the last one's first), then what is
// below the block itself. That order decides the order of the texts and attachments in the mail. A visit
// that returns a failure ends the walk. Trees may be a million cells long or deep: the walk needs neither
// stack nor memory.
template <class Visit>
Result VisitBlocks(const TypV2BlockCell* first, Visit&& visit) {
  for (const TypV2BlockCell* cell = first; cell != nullptr; cell = BlockAfter(cell, first)) {
    if (const Result rc = visit(*cell); rc != kOk) return rc;
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
