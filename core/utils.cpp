// Byte order, hexadecimal, the password's key, bounded concatenation, line ends, dates.
#include "core/utils.h"

#include <array>
#include <bit>
#include <cstdio>
#include <cstring>

#include "base/byte_mask.h"
#include "core/calendar.h"
#include "core/key_header.h"
#include "core/owned.h"
#include "core/password.h"
#include "core/result.h"
#include "crypto/classic.h"

using namespace kestrune;

namespace {

constexpr std::size_t kPasswordDigestedCharacters = 32;
constexpr std::size_t kPasswordKeyBytes = 32;
constexpr int kYearsSince1900ToKeyYear = 100;
constexpr int kTmYearBase = 1900;

// Keys pass through both: no table, whose cache lines would tell which digits were read, and no branch.
char HexDigit(int value) {  // below 16
  return static_cast<char>('0' + value +
                           (IsBetween(static_cast<unsigned char>(value), 10, 15) & ('A' - '9' - 1)));
}

int HexValue(char digit) {  // 0 for what is no digit
  const auto character = static_cast<unsigned char>(digit);
  const auto small = static_cast<unsigned char>(character | ('a' - 'A'));
  return (IsBetween(character, '0', '9') & (character - '0')) |
         (IsBetween(small, 'a', 'f') & (small - 'a' + 10));
}

template <class Integer>
void ReverseBytes(Integer* value) {
  std::array<unsigned char, sizeof(Integer)> bytes;
  std::memcpy(bytes.data(), value, sizeof(Integer));
  std::array<unsigned char, sizeof(Integer)> reversed;
  for (std::size_t i = 0; i < sizeof(Integer); ++i) reversed[i] = bytes[sizeof(Integer) - 1 - i];
  std::memcpy(value, reversed.data(), sizeof(Integer));
}

}  // namespace

int TypV2Utils::InitCreate() {
  return kOk;
}

int TypV2Utils::Kill() {
  return kOk;
}

void TypV2Utils::SwapHeader(TypV2KeyHeader* header) {
  if (ShouldSwapBytes() == 0) return;
  for (std::int32_t* word : {&header->Word0, &header->Word4, &header->Word8, &header->Word44})
    swapapilong(word);
  for (std::uint64_t* field :
       {&header->TailleOTPChiffrement, &header->TailleOTPassword, &header->Quad104,
        &header->OffsetOTPChiffrement, &header->OffsetOTPassword, &header->CycleCountOTPChiffrement,
        &header->Quad136, &header->UseCountOTPChiffrement, &header->UsedBytesOTPChiffrement}) {
    unsigned long long value = *field;
    swapUnsignedapilong64(&value);
    *field = value;
  }
}

int TypV2Utils::ShouldSwapBytes() {
  return std::endian::native == std::endian::little ? 1 : 0;
}

void TypV2Utils::swapapilong(std::int32_t* value) {
  if (ShouldSwapBytes() == 1) ReverseBytes(value);
}

void TypV2Utils::swapshort(std::int16_t* value) {
  if (ShouldSwapBytes() == 1) ReverseBytes(value);
}

void TypV2Utils::swapUnsignedapilong(std::uint32_t* value) {
  if (ShouldSwapBytes() == 1) ReverseBytes(value);
}

void TypV2Utils::swapUnsignedapilong64(unsigned long long* value) {
  if (ShouldSwapBytes() == 1) ReverseBytes(value);
}

void TypV2Utils::swapapilong64(long long* value) {
  if (ShouldSwapBytes() == 1) ReverseBytes(value);
}

void TypV2Utils::apiulong64tochars(unsigned long long value, unsigned char* bytes) {
  if (ShouldSwapBytes() == 1) std::memcpy(bytes, &value, sizeof value);
}

void TypV2Utils::chartohex(unsigned char byte, char* out) {
  out[0] = HexDigit(byte >> 4);
  out[1] = HexDigit(byte & 0x0F);
}

int TypV2Utils::hextodec(char digit) {
  return HexValue(digit);
}

void TypV2Utils::Hexadecimalise(const unsigned char* bytes, unsigned long long count, char* out) {
  for (unsigned long long i = 0; i < count; ++i) chartohex(bytes[i], out + 2 * i);
  // Kept so: nothing but a terminator at index 2 for no bytes at all.
  out[count == 0 ? 2 : 2 * count] = 0;
}

void TypV2Utils::DeHexadecimalise(const char* text, unsigned char* out, unsigned long long* count) {
  const std::size_t length = std::strlen(text);
  *count = 0;
  // The digit behind an odd last one is the terminator, which counts as 0.
  for (std::size_t i = 0; i < length; i += 2) {
    out[(*count)++] = static_cast<unsigned char>(hextodec(text[i]) << 4 | hextodec(text[i + 1]));
  }
}

int TypV2Utils::BuildHexPassword(const unsigned char* password, unsigned char* out) {
  if (password == nullptr) return argument::kNoInput;
  if (*password == 0) return argument::kEmptyInput;
  if (out == nullptr) return utils::kNoPasswordOutput;
  SecretArray<kPasswordDigestedCharacters + 1> digested;
  const auto* text = reinterpret_cast<const char*>(password);
  const std::size_t length = ::strnlen(text, kPasswordDigestedCharacters);
  std::memcpy(digested.data(), password, length);
  *out = 0;  // behind the copy: both may be the same buffer
  SubstitutePasswordCharacters(digested.text());
  SecretArray<kSha512Bytes> digest;
  sha4(digested.data(), length, digest.data(), 0);
  Hexadecimalise(digest.data(), kPasswordKeyBytes, reinterpret_cast<char*>(out));
  return kOk;
}

int TypV2Utils::Concatenate(char* destination, const char* source, long long count, long long* position,
                            long long capacity) {
  if (source == nullptr || position == nullptr) return argument::kNoInput;
  if (destination == nullptr) return utils::kNoDestination;
  if (*position < 0 || count < 0) return utils::kNegative;
  if (count < 1) return kOk;
  // position + count >= capacity, without wrapping.
  if (*position >= capacity || count >= capacity - *position) return utils::kDoesNotFit;
  std::memcpy(destination + *position, source, static_cast<std::size_t>(count));
  *position += count;
  destination[*position] = 0;
  return kOk;
}

void TypV2Utils::Convert0Ato0D(unsigned char* buffer, unsigned long long length) {
  for (unsigned long long i = 0; i < length; ++i) {
    if (buffer[i] == '\n') buffer[i] = '\r';
  }
}

void TypV2Utils::GetSQLDateTime(char* out) {
  const std::tm now = LocalCalendar();
  std::sprintf(out, "%d-%02d-%02d %02d:%02d:%02d", now.tm_year + kTmYearBase, now.tm_mon + 1, now.tm_mday,
               now.tm_hour, now.tm_min, now.tm_sec);
}

void TypV2Utils::GetKeyFilenameExtensionV2(char* out) {
  std::sprintf(out, "%d", LocalCalendar().tm_year + kYearsSince1900ToKeyYear);
}

void TypV2Utils::GetKeyFilenameExtensionV1(char* out) {
  std::sprintf(out, "%d", LocalCalendar().tm_year);
}

long long TypV2Utils::GetCurrentYear() {
  return static_cast<long long>(LocalCalendar().tm_year) + kTmYearBase;
}
