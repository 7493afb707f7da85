// The links of a tree as they are, whatever a subclass answers, for walks in another order. Each may be null.
//
// For the library's own use; neither installed nor exported.
#ifndef KESTRUNE_BLOCKS_TREE_LINKS_H
#define KESTRUNE_BLOCKS_TREE_LINKS_H

#include "blocks/block_cell.h"

namespace kestrune {

class TreeLinks {
 public:
  static const TypV2BlockCell* Next(const TypV2BlockCell& cell) { return cell.next_; }
  static const TypV2BlockCell* Previous(const TypV2BlockCell& cell) {
    return cell.IsFirstOfChain() ? nullptr : cell.prev_;
  }
  static const TypV2BlockCell* Below(const TypV2BlockCell& cell) { return cell.sub_; }
  static const TypV2BlockCell* Above(const TypV2BlockCell& cell) { return cell.up_; }
};

}  // namespace kestrune

#endif
