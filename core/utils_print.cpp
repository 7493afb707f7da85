// Printing bytes for people.
#include <cstdio>

#include "core/utils.h"

namespace {

constexpr unsigned long long kBytesPerRow = 32;
constexpr const char* kIndentation = "       ";

bool IsPrintable(unsigned char byte) {
  return byte >= 32 && byte <= 126;
}

}  // namespace

void TypV2Utils::indent(long level) {
  for (long i = 0; i < level; ++i) std::fputs(kIndentation, stdout);
}

void TypV2Utils::hexdump(const unsigned char* data, unsigned long long length) {
  hexdump2(data, length, 0);
}

void TypV2Utils::hexdump2(const unsigned char* data, unsigned long long length, long level) {
  indent(level);
  std::printf("dump %d Byte(s)\n", static_cast<int>(length));
  for (unsigned long long row = 0; row < length; row += kBytesPerRow) {
    const unsigned long long end = length - row < kBytesPerRow ? length : row + kBytesPerRow;
    std::fputs("\n", stdout);
    indent(level);
    std::printf("%#08X %08d ", static_cast<unsigned>(row), static_cast<int>(row));
    for (unsigned long long i = row; i < end; ++i) std::printf("%X ", static_cast<unsigned>(data[i]));
    std::fputs("\n", stdout);
    indent(level);
    std::fputs("                  ", stdout);
    for (unsigned long long i = row; i < end; ++i) {
      if (IsPrintable(data[i])) {
        std::printf("%c  ", data[i]);
      } else {
        std::fputs(".  ", stdout);
      }
    }
  }
  std::fputs("\n\n", stdout);
}
