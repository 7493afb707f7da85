#include "tool/getopt2.h"

#include <cstdio>
#include <cstring>

namespace kestrune::tool {

int optind = 1;
int offset = 0;

namespace {

void NextWord() {
  ++optind;
  offset = 0;
}

int Illegal(const char* program, char option) {
  std::fprintf(stderr, "\n%s: illegal option -- %c", program, option);
  return '?';
}

// The rest of the word, or the whole next one; null when the vector ends.
int TakeArgument(int argc, char** argv, char option, char** argument) {
  char* rest = argv[optind] + offset;
  if (*rest == 0) {
    if (++optind >= argc) {
      offset = 0;
      return option;
    }
    rest = argv[optind];
  }
  *argument = rest;
  // Kept so: the offset stays, so the next call goes on inside this word, past its option letter.
  if (*rest == '-') return Illegal(argv[0], option);
  NextWord();
  return option;
}

}  // namespace

int getopt2(int argc, char** argv, const char* options, char** argument) {
  *argument = nullptr;
  if (optind >= argc) return -1;
  char* const word = argv[optind];
  if (word[0] != '-') {
    *argument = word;
    ++optind;
    return -1;
  }

  const int length = static_cast<int>(std::strlen(word));
  // The offset may stem from a longer word before: this one counts as read.
  if (offset >= length) {
    NextWord();
    return 0;
  }
  if (word[offset] == '-') ++offset;
  const char option = word[offset++];

  // The terminator of the option string counts as found, and so ends a word.
  const char* known = std::strchr(options, option);
  if (known == nullptr) return Illegal(argv[0], option);
  if (option != 0 && known[1] == ':') return TakeArgument(argc, argv, option, argument);
  if (offset >= length) NextWord();
  return option;
}

}  // namespace kestrune::tool
