// How the steps of one sealing pass a layer on without copying it.
#ifndef KESTRUNE_ENVELOPE_HANDOVER_H
#define KESTRUNE_ENVELOPE_HANDOVER_H

#include <cstddef>
#include <utility>

#include "envelope/layer.h"

namespace kestrune {

// Between the steps of the library's own envelope, a layer that one of them hands out stays where it is, in
// memory with room around it, and the next one recognises it by its address: it wraps it in place, and knows
// its digest. A step that finds none hands out a buffer of the C allocator, and takes bytes of any origin.
class Handover {
 public:
  explicit Handover(std::size_t xml_room) : xml_room_(xml_room) {}

  // Characters of XML that the cell around the next layer has at most.
  void set_xml_room(std::size_t characters) { xml_room_ = characters; }
  std::size_t xml_room() const { return xml_room_; }

  void Give(Layer layer, unsigned char** out, unsigned long long* length) {
    layer_ = std::move(layer);
    *out = layer_.data();
    *length = layer_.size();
  }
  // The layer that was handed out as these bytes, or null.
  Layer* Find(const unsigned char* bytes, unsigned long long length) {
    return bytes != nullptr && bytes == layer_.data() && length == layer_.size() ? &layer_ : nullptr;
  }

 private:
  std::size_t xml_room_;
  Layer layer_;
};

}  // namespace kestrune

#endif
