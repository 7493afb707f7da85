#include "mail/charset.h"

#include <array>
#include <cstddef>

#include <kestrune/kestrune.h>

namespace {

constexpr long kUpperHalf = 128;
constexpr long kBytes = 256;
constexpr long kMostUtf8Characters = 2'000'000'000;
constexpr long kMostUtf8Bytes = 2'000'000'000;

// Mac Roman bytes for the upper half of Windows Latin. What Mac Roman lacks stays as it is. Kept so: 130,
// 132, 149, 152, 170, 175, 180, 183, 184 and 186 stay too, which it has, and both single quotes become the
// apostrophe.
constexpr std::array<unsigned char, 128> kWindowsLatinToMacRoman = {
    219, 129, 130, 196, 132, 201, 160, 224, 246, 228, 138, 220, 206, 141, 142, 143,  //
    144, 39,  39,  210, 211, 149, 208, 209, 152, 170, 154, 221, 207, 157, 158, 217,  //
    202, 193, 162, 163, 164, 180, 166, 164, 172, 169, 170, 199, 194, 173, 168, 175,  //
    161, 177, 178, 179, 180, 181, 166, 183, 184, 185, 186, 200, 188, 189, 190, 192,  //
    203, 231, 229, 204, 128, 129, 174, 130, 233, 131, 230, 232, 237, 234, 235, 236,  //
    208, 132, 241, 238, 239, 205, 133, 215, 175, 244, 242, 243, 134, 221, 222, 167,  //
    136, 135, 137, 139, 138, 140, 190, 141, 143, 142, 144, 145, 147, 146, 148, 149,  //
    240, 150, 152, 151, 153, 155, 154, 214, 191, 157, 156, 158, 159, 253, 254, 216,  //
};

constexpr long AtLeastZero(long value) {
  return value < 0 ? 0 : value;
}

bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// Continuation bytes that a lead byte announces, or -1 for a byte that leads nothing.
int ContinuationBytes(unsigned char lead) {
  if ((lead & 0x80) == 0) return 0;
  if ((lead & 0x40) == 0) return -1;
  if ((lead & 0x20) == 0) return 1;
  if ((lead & 0x10) == 0) return 2;
  if ((lead & 0x08) == 0) return 3;
  return -1;
}

// Characters of a UTF-8 text, or 0 when it is malformed or too long. The terminator is no continuation byte,
// so a text cut inside a character is not read beyond it.
long CountUtf8Characters(const unsigned char* text) {
  long count = 0;
  while (*text != 0) {
    if (++count > kMostUtf8Characters) return 0;
    const int continuation = ContinuationBytes(*text++);
    if (continuation < 0) return 0;
    for (int i = 0; i < continuation; ++i) {
      if (!IsContinuation(*text++)) return 0;
    }
  }
  return count;
}

// One character of a text that CountUtf8Characters accepted.
unsigned long TakeUtf8Character(const unsigned char** text) {
  const unsigned char* from = *text;
  const int continuation = ContinuationBytes(*from);
  constexpr std::array<unsigned char, 4> kLeadMasks = {0x7F, 0x1F, 0x0F, 0x07};
  unsigned long value = *from++ & kLeadMasks[static_cast<std::size_t>(continuation)];
  for (int i = 0; i < continuation; ++i) value = (value << 6) + (*from++ & 0x3F);
  *text = from;
  return value;
}

// Writes one code point as UTF-8 and returns the place behind it.
unsigned char* PutUtf8Character(unsigned char* to, long value) {
  constexpr unsigned char kReplacement = 1;
  const auto put = [&to](long byte) { *to++ = static_cast<unsigned char>(byte); };
  if (value < 0 || value >= 0x200000) {
    put(kReplacement);
  } else if (value < 0x80) {
    put(value);
  } else if (value < 0x800) {
    put(0xC0 + (value >> 6));
    put(0x80 + (value & 0x3F));
  } else if (value < 0x10000) {
    put(0xE0 + (value >> 12));
    put(0x80 + ((value & 0xFFF) >> 6));
    put(0x80 + (value & 0x3F));
  } else {
    put(0xF0 + (value >> 18));
    put(0x80 + ((value & 0x3FFFF) >> 12));
    put(0x80 + ((value & 0xFFF) >> 6));
    put(0x80 + (value & 0x3F));
  }
  return to;
}

}  // namespace

const long MacRomanToUnicode[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1,  // 0x80
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8,  //
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,  // 0x90
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC,  //
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF,  // 0xA0
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,  //
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211,  // 0xB0
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8,  //
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,  // 0xC0
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153,  //
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA,  // 0xD0
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,  //
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,  // 0xE0
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4,  //
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,  // 0xF0
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,  //
};

void convertisolatinversmacroman(unsigned char* buffer, long length) {
  if (buffer == nullptr) return;
  for (long i = 0; i < length; ++i) {
    const unsigned char byte = buffer[i];
    if (byte == '\n') buffer[i] = '\r';
    if (byte >= kUpperHalf) buffer[i] = kWindowsLatinToMacRoman[byte - kUpperHalf];
  }
}

void convertMacCharToUnicode(long* character) {
  if (character == nullptr) return;
  const long value = *character;
  if (value >= kUpperHalf && value < kBytes) *character = MacRomanToUnicode[value - kUpperHalf];
}

long* convertMacStrToUnicodeLongStr(long* destination, unsigned char* source, long maximum) {
  if (destination == nullptr) return nullptr;
  long count = 0;
  for (; source != nullptr && count < maximum && source[count] != 0; ++count) {
    destination[count] = source[count];
    convertMacCharToUnicode(&destination[count]);
  }
  destination[count] = 0;
  return destination;
}

void copyTextLong(long* destination, long* source, long maximum) {
  if (destination == nullptr) return;
  long count = 0;
  for (; source != nullptr && count < maximum && source[count] != 0; ++count) {
    destination[count] = source[count];
  }
  destination[count] = 0;
}

void copyTextUtf8ToLongStr(long* destination, const char* source, long maximum) {
  if (destination == nullptr) return;
  *destination = 0;
  if (source == nullptr) return;
  const auto* from = reinterpret_cast<const unsigned char*>(source);
  const long present = CountUtf8Characters(from);
  const long count = present < maximum ? present : AtLeastZero(maximum);
  // Deliberate: not the code points but their low 8 bits, one byte each, so that text up to U+00FF comes
  // out as Latin-1.
  auto* to = reinterpret_cast<unsigned char*>(destination);
  for (long i = 0; i < count; ++i) *to++ = static_cast<unsigned char>(TakeUtf8Character(&from));
  *to = 0;
}

char* convertLongStrToUtf8(long* string) {
  if (string == nullptr) return nullptr;
  // Each element has 8 bytes and gives at most 4, so the writing never overtakes the reading.
  auto* const begin = reinterpret_cast<unsigned char*>(string);
  unsigned char* to = begin;
  for (const long* from = string; *from != 0 && to - begin < kMostUtf8Bytes; ++from) {
    to = PutUtf8Character(to, *from);
  }
  *to = 0;
  return reinterpret_cast<char*>(begin);
}

int longStrEqual(long* a, long* b) {
  if (a == nullptr || b == nullptr) return a == b ? 1 : 0;
  while (*a != 0 && *a == *b) {
    ++a;
    ++b;
  }
  return *a == *b ? 1 : 0;
}
