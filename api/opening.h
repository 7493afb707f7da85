// The one way from a grey block to what it deciphers to, whether it came from a file or from memory.
#ifndef KESTRUNE_API_OPENING_H
#define KESTRUNE_API_OPENING_H

#include "api/message_call.h"
#include "base/buffer.h"
#include "blocks/block_cell.h"
#include "core/limits.h"
#include "core/scrub.h"
#include "core/utils.h"

namespace kestrune {

using HexPassword = SecretArray<limits::kHexPassword + 1>;

// Of a pass phrase as typed; an empty one gives a password that opens nothing.
void MakeHexPassword(const char* password, HexPassword* hex);

class Opening {
 public:
  Opening() : utils_(call_.creator()->newTypV2Utils()) {}

  // False when there was no memory for the utilities.
  bool is_made() const { return static_cast<bool>(utils_); }
  Result Init(const char* folder);

  // Takes a grey block, which stays where it is until all is done, apart: its green block, and the personal key that
  // it names.
  Result TakeApart(const unsigned char* grey, unsigned long long length);
  // The same, of what is called a grey block; -77 for a transport block, whose content would be no green one.
  Result TakeApartGrey(const unsigned char* grey, unsigned long long length);

  // What the green block deciphers to, loaded, or as it is. May never return.
  Result Decipher(const char* hex_password, Owned<TypV2BlockCell>* red);
  Result Decipher(const char* hex_password, SecretCBuffer* kest);

  unsigned long long green_length() const { return data_->GetDataForkLen(); }
  TypV2InstanceCreator* creator() { return call_.creator(); }
  TypV2Utils* utils() { return utils_.get(); }

 private:
  MessageCall call_;
  Owned<TypV2Utils> utils_;
  Owned<TypV2BlockCell> data_;
  CBuffer routing_;
  ScrubAtEnd<CBuffer> scrub_routing_{routing_, Scrub::kAllButTerminator};
  SecretCBuffer key_name_;
};

}  // namespace kestrune

#endif
