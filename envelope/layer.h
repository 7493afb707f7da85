// One layer of a message on its way out, in memory with room for the layer that comes around it.
#ifndef KESTRUNE_ENVELOPE_LAYER_H
#define KESTRUNE_ENVELOPE_LAYER_H

#include <cstddef>

#include "blocks/flat_digest.h"
#include "core/owned.h"
#include "core/result.h"

class TypV2BlockCell;

namespace kestrune {

// A flat tree. Wiped when it goes.
//
// Cells of the library's own class are written straight into that memory, without copying the bytes inside
// them; a platform's own cell is asked through its SetData and GetFlatData.
class Layer {
 public:
  // Flattens a tree. `xml_room`: characters of XML that the cell around it may have without its being moved;
  // 0: nothing comes around it.
  Result Flatten(const TypV2BlockCell& tree, std::size_t xml_room);

  // Makes the cell, freshly initialised, a leaf around these bytes, and flattens it.
  Result Enclose(TypV2BlockCell* cell, const char* name, const char* xml, const unsigned char* data,
                 unsigned long long length, std::size_t xml_room);

  // Puts the cell, freshly initialised, around the tree that is held.
  Result Wrap(TypV2BlockCell* cell, const char* name, const char* xml);

  unsigned char* data() { return memory_.data() + begin_; }
  const unsigned char* data() const { return memory_.data() + begin_; }
  std::size_t size() const { return size_; }
  // SHA-512 of all the bytes, which is what a signature of the layer signs; null where it is not known.
  const unsigned char* digest() const { return has_digest_ ? digests_.whole.data() : nullptr; }

  void Clear();
  // To a caller who frees it.
  void HandOut(unsigned char** out, unsigned long long* length);

 private:
  Result Write(const TypV2BlockCell& tree, std::size_t begin, std::size_t tree_bytes);

  SecretCBuffer memory_;
  std::size_t begin_ = 0;
  std::size_t size_ = 0;
  bool has_digest_ = false;
  FlatDigests digests_;
};

}  // namespace kestrune

#endif
