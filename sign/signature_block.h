// The text around a signature.
#ifndef KESTRUNE_SIGN_SIGNATURE_BLOCK_H
#define KESTRUNE_SIGN_SIGNATURE_BLOCK_H

#include <cstddef>
#include <string_view>

#include "core/result.h"

namespace kestrune {

// Writes the block of a signature made with the key of this file name, whose last four characters (".key")
// are left out. `out` must hold it with its terminator: the name, the Base64 text, a line feed for each 60
// characters of that, and 40. signer::kBase64, nothing written, for a signature of more than 3069 bytes.
Result WriteSignatureBlock(std::string_view key_file_name, const unsigned char* signature, std::size_t length,
                           char* out);

}  // namespace kestrune

#endif
