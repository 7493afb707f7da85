// Trees over bytes that somebody else owns: blocks too large to be copied without need.
//
// For the library's own use; neither installed nor exported.
#ifndef KESTRUNE_BLOCKS_LENT_DATA_H
#define KESTRUNE_BLOCKS_LENT_DATA_H

#include "blocks/block_cell.h"

namespace kestrune {

// SetData, AddSubBlockWithData and LoadFlatData in which the data forks are the caller's bytes themselves.
// These must outlive the tree and are neither changed, wiped nor freed by it. When a tree is written over its
// own lent bytes, they must lie where they belong.
class LentData {
 public:
  static int Set(TypV2BlockCell* cell, const char* name, const char* xml, const unsigned char* data,
                 unsigned long long length) {
    return cell->LendData(name, xml, data, length);
  }
  static int AddSubBlock(TypV2BlockCell* parent, const char* name, const char* xml, const unsigned char* data,
                         unsigned long long length) {
    return parent->AddSubBlockWithLentData(name, xml, data, length);
  }
  // `digests` are those of the buffer.
  static int Load(TypV2BlockCell* root, const unsigned char* buffer, unsigned long long length,
                  const FlatDigests& digests) {
    return root->LoadLentFlatData(buffer, length, digests);
  }
};

}  // namespace kestrune

#endif
