// Personal and master key files, written from their formats alone: nothing here is shared with the reader.
#ifndef KESTRUNE_EXAMPLES_KEY_FILES_H
#define KESTRUNE_EXAMPLES_KEY_FILES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune::examples {

using Bytes = std::vector<unsigned char>;

// Where the numbers of a header are; all have 8 bytes, big-endian.
inline constexpr std::size_t kFirstPadBytesAt = 88;
inline constexpr std::size_t kSecondPadBytesAt = 96;
inline constexpr std::size_t kFirstOffsetAt = 112;
inline constexpr std::size_t kSecondOffsetAt = 120;
inline constexpr std::size_t kCyclesAt = 128;
inline constexpr std::size_t kUsesAt = 144;
inline constexpr std::size_t kUsedBytesAt = 152;
inline constexpr std::size_t kCheckDigestAt = 180;
inline constexpr std::size_t kKeyHeaderBytes = 512;
inline constexpr std::size_t kMasterPadAt = 4608;
inline constexpr std::size_t kPadChunk = 4096;

// The year numbers in file names, from the clock.
std::string CertificateYear();  // 126 in 2026
std::string PersonalKeyYear();  // 226 in 2026

// The key that a pass phrase stands for, in hexadecimal.
std::string HexPassword(std::string_view pass_phrase);

// Bytes that look random: the same for the same seed, or fresh from the system.
Bytes PadOf(std::size_t bytes, std::uint64_t seed);
Bytes FreshPad(std::size_t bytes);

// A personal key: what its file is made of. Everything without a meaning is filled with a pattern.
struct PersonalKey {
  std::string hex_password = HexPassword("a_b_c_d");
  Bytes first_pad = PadOf(16 * kPadChunk, 1);
  Bytes second_pad = PadOf(4 * kPadChunk, 2);
  std::uint64_t first_offset = 0;
  std::uint64_t second_offset = 0;
  std::uint64_t seed = 3;  // of the chunks' initial vectors; 0: fresh ones

  Bytes File() const;
};

struct MasterKey {
  Bytes pad = PadOf(16 * kPadChunk, 4);
  std::uint64_t offset = 0;

  Bytes File() const;
};

std::uint64_t NumberAt(const Bytes& bytes, std::size_t at);
void SetNumberAt(Bytes& bytes, std::size_t at, std::uint64_t value);

// Length of the IV area behind a header with these pad lengths.
std::uint64_t IvAreaBytes(std::uint64_t first_pad, std::uint64_t second_pad);

// Makes the check digest of a personal key file right again, whatever its header and IV area hold now. Does
// nothing to a file that ends before the part of the IV area that is digested.
void Reseal(Bytes& file, const std::string& hex_password);

// AES-256-CBC without padding, in place; `bytes` is a multiple of 16.
void AesCbc(bool encipher, const unsigned char* key, const unsigned char* iv, unsigned char* data,
            std::size_t bytes);

}  // namespace kestrune::examples

#endif
