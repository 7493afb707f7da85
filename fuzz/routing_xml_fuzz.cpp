// A routing XML of any content in a grey block that the known sender signed: the key reference is taken out.
#include "fuzz/message_yard.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MessageYard yard;
  yard.OpenTransport(yard.Sign(FlatLeaf("DATA", std::string(data, data + size), {1})));
  return 0;
}
