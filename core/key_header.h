// The record at the head of every key file (docs/key_files.md).
#ifndef KESTRUNE_CORE_KEY_HEADER_H
#define KESTRUNE_CORE_KEY_HEADER_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

// 512 bytes; the numbers are big-endian in the file and turned by TypV2Utils::SwapHeader. Everything that
// has no meaning here is kept as it was read and written back unchanged.
struct TypV2KeyHeader {
  std::int32_t Word0;
  std::int32_t Word4;
  std::int32_t Word8;
  std::uint8_t Bytes12[32];
  std::int32_t Word44;
  std::uint8_t Bytes48[40];
  std::uint64_t TailleOTPChiffrement;  // length of the first pad in bytes, a multiple of 4096
  std::uint64_t TailleOTPassword;      // length of the second pad in bytes, a multiple of 4096
  std::uint64_t Quad104;
  std::uint64_t OffsetOTPChiffrement;      // next unused byte of the first pad
  std::uint64_t OffsetOTPassword;          // next unused byte of the second pad
  std::uint64_t CycleCountOTPChiffrement;  // how often reading the first pad started again at 0
  std::uint64_t Quad136;
  std::uint64_t UseCountOTPChiffrement;   // hand-outs of the first pad
  std::uint64_t UsedBytesOTPChiffrement;  // bytes handed out from the first pad
  std::uint8_t Bytes160[20];
  std::uint8_t CheckDigest[20];  // tells whether the password is the right one
  std::uint8_t Bytes200[312];
};

static_assert(sizeof(TypV2KeyHeader) == 512);
static_assert(std::is_trivially_copyable_v<TypV2KeyHeader>);
static_assert(offsetof(TypV2KeyHeader, Word44) == 44);
static_assert(offsetof(TypV2KeyHeader, TailleOTPChiffrement) == 88);
static_assert(offsetof(TypV2KeyHeader, Quad104) == 104);
static_assert(offsetof(TypV2KeyHeader, OffsetOTPChiffrement) == 112);
static_assert(offsetof(TypV2KeyHeader, UsedBytesOTPChiffrement) == 152);
static_assert(offsetof(TypV2KeyHeader, CheckDigest) == 180);

#endif
