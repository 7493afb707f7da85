// The first attachment of a MIME text that came from outside, and that nothing terminates.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TypV2InstanceCreatorUnix creator;
  kestrune::Owned<TypV2Utils> utils(creator.newTypV2Utils());
  std::vector<unsigned char> text(data, data + size);
  kestrune::CBuffer attachment;
  if (utils.Init() != kestrune::kOk) std::abort();
  const int code = attachment.Receive([&](unsigned char** out, unsigned long long* length) {
    return utils->ExtractFirstPJFromMime(text.data(), text.size(), out, length);
  });
  const bool refused = code == kestrune::utils::kNoAttachment || code == kestrune::utils::kEmptyAttachment;
  if (code != kestrune::kOk && !refused) std::abort();
  // Base64 gives three bytes for four characters; a refusal, nothing.
  if (attachment.size() > size / 4 * 3 || (refused && attachment)) std::abort();
  return 0;
}
