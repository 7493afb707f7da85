// A grey block of any content, opened with fixed keys. The first byte chooses whether its trailer is made
// right. The message cipher's trap lets go.
#include <kestrune/kestrune.h>
#include "base/buffer.h"
#include "fuzz/message_folder.h"
#include "tests/support/sealed_message.h"

using namespace kestrune::testing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static FuzzFolder yard;
  if (size < 2) return 0;
  Bytes grey(data + 1, data + size);
  if (data[0] % 2 == 1) {
    grey.resize(grey.size() + 64);
    SealAgain(grey);
  }
  char* xml = nullptr;
  (void)Api2DecrypterGrisMem(grey.data(), grey.size(), yard.path().c_str(), FuzzFolder::kPassPhrase, &xml);
  kestrune::CBuffer owned;
  owned.AdoptText(xml);
  return 0;
}
