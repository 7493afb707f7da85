// The encoded blocks of PKCS#1 v1.5 (RFC 8017). For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_PADDING_H
#define KESTRUNE_CRYPTO_PADDING_H

#include <cstddef>
#include <span>

namespace kestrune::crypto {

// True when `length` bytes and the least padding fit into a block.
bool FitsBlock(std::size_t length, std::size_t block_length);

// 00 01 FF ... FF 00 and the bytes, which fit.
void PadForSignature(std::span<const unsigned char> bytes, std::span<unsigned char> block);

// 00 02, random bytes that are not 0, 00 and the bytes, which fit; false when the system has no random bytes.
bool PadForEncryption(std::span<const unsigned char> bytes, std::span<unsigned char> block);

// Takes the bytes out of a block that was padded for encryption, changing it: 0, or ERR_RSA_INVALID_PADDING, or
// ERR_RSA_OUTPUT_TOO_LARGE when there are more than `output_max`. Nothing that is done, which memory is read and
// written and how long it takes tell what the block held: whoever learns that of blocks of his choice can decipher
// with the key. `output` gets as many bytes as could come out, zeros behind those that did and in a failure.
int Unpad(std::span<unsigned char> block, unsigned char* output, std::size_t output_max,
          std::size_t* output_length);

}  // namespace kestrune::crypto

#endif
