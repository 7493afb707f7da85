// What the message entry points have in common.
#ifndef KESTRUNE_API_MESSAGE_CALL_H
#define KESTRUNE_API_MESSAGE_CALL_H

#include <cstddef>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"

namespace kestrune {

// The factory and the envelope of one call. The envelope is of the base class, not the factory's: the base
// class's message identifiers are those of the entry points.
class MessageCall {
 public:
  MessageCall();

  // False when there was no memory for the envelope.
  bool is_made() const { return static_cast<bool>(envelope_); }
  Result Init(const char* folder) { return envelope_.Init(&creator_, folder, folder); }

  TypV2InstanceCreator* creator() { return &creator_; }
  TypV2CryptoInterface* envelope() { return envelope_.get(); }

 private:
  TypV2InstanceCreatorUnix creator_;
  Owned<TypV2CryptoInterface> envelope_;
};

// Reads the file at `path` whole into `content`, with `spare` zero bytes behind it. Kept so: that the
// reading stopped short is not reported, what is missing is zeros; the result is that of the closing.
Result ReadWholeFile(TypV2InstanceCreator* creator, const char* path, std::size_t spare, CBuffer* content);

// For printing: a text that is not there.
inline const char* Shown(const char* text) {
  return text == nullptr ? "(null)" : text;
}

}  // namespace kestrune

#endif
