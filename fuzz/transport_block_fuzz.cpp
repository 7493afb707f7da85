// A transport block of any content, checked and opened as far as it goes, with fixed keys. The first byte
// chooses: the block as it is; with its trailer made right; a grey block that the known sender signed; or a
// KEST tree in the end. The message cipher's trap lets go.
#include "fuzz/message_yard.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MessageYard yard;
  if (size < 1) return 0;
  Bytes block(data + 1, data + size);
  switch (data[0] % 4) {
    case 0:
      break;
    case 1:
      block.resize(block.size() + 64);
      SealAgain(block);
      break;
    case 2:
      block.resize(block.size() + 64);
      SealAgain(block);
      yard.OpenGrey(block);
      block = yard.Sign(block);
      break;
    default:
      block.resize(block.size() + 64);
      SealAgain(block);
      yard.LoadRed(block);
      return 0;
  }
  yard.OpenTransport(block);
  return 0;
}
