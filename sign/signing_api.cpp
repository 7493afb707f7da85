// The flat entry points of signing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include <kestrune/kestrune.h>
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"
#include "sign/signature.h"

using namespace kestrune;

namespace {

constexpr std::size_t kLargestLength = std::numeric_limits<std::uint32_t>::max();

}  // namespace

int BuildHexPassword(const unsigned char* password, unsigned char* out) {
  return EntryPoint([&]() -> Result {
    TypV2InstanceCreatorUnix creator;
    Owned<TypV2Utils> utils(creator.newTypV2Utils());
    if (const Result rc = utils.Init(); rc != kOk) return rc;
    return utils->BuildHexPassword(password, out);
  });
}

int Api2GetSignatureXMLLight(const char* data, const char* keyName, char* password, const char* folder,
                             char* out) {
  return EntryPoint([&]() -> Result {
    TypV2InstanceCreatorUnix creator;
    Owned<TypApiV2Signature> signer(creator.newTypApiV2Signature());
    if (const Result rc = signer.Init(&creator, keyName, folder, password); rc != kOk) return rc;
    if (data == nullptr) return argument::kNoInput;
    if (out == nullptr) return argument::kNoOutput;
    // What no 32 bits hold is too long for every key: it must not be signed by its low bits.
    const auto length = static_cast<std::uint32_t>(std::min(std::strlen(data), kLargestLength));
    return signer->GetSignatureXMLLight(reinterpret_cast<const unsigned char*>(data), length, out, 0);
  });
}
