#include "tests/support/sealed_body.h"

#include <array>

#include "examples/key_files.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kHead = 24;
constexpr std::size_t kClear = 8;
constexpr std::size_t kBlock = 16;
constexpr std::array<unsigned char, kBlock> kZeroIv{};

unsigned char PadByte(const Bytes& pad, std::uint64_t offset, std::size_t i) {
  return pad.at((offset + i) % pad.size());
}

void Cipher(bool encipher, const Pads& pads, Bytes& sealed) {
  const Bytes password = RunOf(pads.second, NumberAt(sealed, 0), 32);
  AesCbc(encipher, password.data(), kZeroIv.data(), sealed.data() + kClear,
         (sealed.size() - kClear) / kBlock * kBlock);
}

// XORs both runs over everything from byte 16 on.
void Mask(const SealedParts& offsets, const Pads& pads, Bytes& sealed) {
  for (std::size_t i = 16; i < sealed.size(); ++i) {
    sealed[i] ^= PadByte(pads.first, offsets.run_offset, i);
    if (i >= kHead) sealed[i] ^= PadByte(pads.master, offsets.master_offset, i - kHead);
  }
}

Bytes Cycled(const Bytes& body, const Bytes& r1) {
  Bytes masked = body;
  for (std::size_t i = 0; i < masked.size() && r1.size() > 1; ++i) masked[i] ^= r1[1 + i % (r1.size() - 1)];
  return masked;
}

}  // namespace

Bytes RunOf(const Bytes& pad, std::uint64_t offset, std::size_t count) {
  Bytes run;
  for (std::size_t i = 0; i < count; ++i) run.push_back(PadByte(pad, offset, i));
  return run;
}

SealedParts PartsOf(const Bytes& body, std::size_t r1_length) {
  SealedParts parts;
  parts.body = body;
  parts.r1 = PadOf(r1_length, 77);
  parts.r1[0] = static_cast<unsigned char>(r1_length);
  const std::size_t r2_length = 48 - (r1_length + 16 + body.size()) % kBlock;
  parts.r2 = PadOf(r2_length, 78);
  parts.r2.back() = static_cast<unsigned char>(r2_length);
  return parts;
}

Bytes SealParts(const SealedParts& parts, const Pads& pads) {
  Bytes sealed(kHead);
  SetNumberAt(sealed, 0, parts.password_offset);
  SetNumberAt(sealed, 8, parts.run_offset);
  SetNumberAt(sealed, 16, parts.master_offset);
  for (const Bytes& piece : {parts.r1, Cycled(parts.body, parts.r1), parts.r2}) {
    sealed.insert(sealed.end(), piece.begin(), piece.end());
  }
  Mask(parts, pads, sealed);
  Cipher(true, pads, sealed);
  return sealed;
}

bool OpenParts(const Bytes& sealed, const Pads& pads, SealedParts* parts) {
  Bytes open = sealed;
  Cipher(false, pads, open);
  parts->password_offset = NumberAt(open, 0);
  parts->run_offset = NumberAt(open, 8);
  Bytes master_offset(open.begin() + 16, open.begin() + kHead);
  for (std::size_t i = 0; i < 8; ++i) master_offset[i] ^= PadByte(pads.first, parts->run_offset, 16 + i);
  parts->master_offset = NumberAt(master_offset, 0);
  Mask(*parts, pads, open);
  const std::size_t r1_length = open[kHead];
  const std::size_t r2_length = open.back();
  if (open.size() < kHead + r1_length + r2_length) return false;
  const auto begin = open.begin() + kHead;
  const auto body = begin + static_cast<std::ptrdiff_t>(r1_length);
  const auto end = open.end() - static_cast<std::ptrdiff_t>(r2_length);
  parts->r1.assign(begin, body);
  parts->r2.assign(end, open.end());
  parts->body = Cycled(Bytes(body, end), parts->r1);
  return true;
}

}  // namespace kestrune::testing
