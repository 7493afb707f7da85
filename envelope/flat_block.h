// A flat tree on its way out, in memory with room for the layer that comes around it.
#ifndef KESTRUNE_ENVELOPE_FLAT_BLOCK_H
#define KESTRUNE_ENVELOPE_FLAT_BLOCK_H

#include <cstddef>

#include "blocks/flat_digest.h"
#include "core/owned.h"
#include "core/result.h"

class TypV2BlockCell;

namespace kestrune {

// Wiped when it goes.
class FlatBlock {
 public:
  // Flattens a tree. `xml_room`: characters of XML that a cell around it may have without its being moved.
  Result Flatten(const TypV2BlockCell& tree, std::size_t xml_room);

  // Puts a cell, freshly initialised, around the tree that is held.
  Result Wrap(TypV2BlockCell* cell, const char* name, const char* xml);

  unsigned char* data() const { return memory_.data() + begin_; }
  std::size_t size() const { return size_; }
  // SHA-512 of all the bytes: what a signature of the block signs.
  const unsigned char* digest() const { return digests_.whole.data(); }

  void Clear();
  // To a caller who frees it.
  void HandOut(unsigned char** out, unsigned long long* length);

 private:
  Result Write(const TypV2BlockCell& tree, std::size_t begin, std::size_t tree_bytes);

  SecretCBuffer memory_;
  std::size_t begin_ = 0;
  std::size_t size_ = 0;
  FlatDigests digests_;
};

}  // namespace kestrune

#endif
