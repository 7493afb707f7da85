// What a green block deciphers to: the red block and the sender's signature of it.
#ifndef KESTRUNE_ENVELOPE_KEST_H
#define KESTRUNE_ENVELOPE_KEST_H

#include <span>

#include "base/buffer.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"

class TypV2BlockCell;
class TypV2InstanceCreator;

namespace kestrune {

// The red block's bytes lie in the flat tree, which outlives this.
class Kest {
 public:
  // Checks the flat tree. The signature has to be there (-69); whether it holds is not asked. Else as LoadFlatData.
  Result Load(TypV2InstanceCreator* creator, TypV2Utils* utils, const unsigned char* flat,
              unsigned long long length);

  const char* signature() const { return signature_.text(); }
  std::span<const unsigned char> red() const;

 private:
  Owned<TypV2BlockCell> cell_;
  SecretCBuffer signature_;
};

}  // namespace kestrune

#endif
