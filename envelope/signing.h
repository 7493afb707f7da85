// What the sources of sealing share: texts of their fixed sizes, and signing.
#ifndef KESTRUNE_ENVELOPE_SIGNING_H
#define KESTRUNE_ENVELOPE_SIGNING_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "envelope/crypto_interface.h"
#include "sign/digest.h"
#include "sign/signature.h"

namespace kestrune {

using SignatureXml = std::array<char, kSignatureXmlBytes>;

// Signs the SHA-512 of the data. The signer counts in 32 bits; what does not fit is more than it signs in any
// case.
inline Result Sign(TypApiV2Signature* signer, const unsigned char* data, unsigned long long length,
                   char* xml) {
  constexpr unsigned long long kLargestLength = std::numeric_limits<std::uint32_t>::max();
  return signer->GetSignatureXMLLight(data, static_cast<std::uint32_t>(std::min(length, kLargestLength)), xml,
                                      kDigestMode);
}

}  // namespace kestrune

#endif
