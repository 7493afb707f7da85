#include "core/string_helpers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace kestrune::testing {
namespace {

TEST(StringHelpers, PushesWhatLeavesTwoBytesFree) {
  char buffer[8] = {};
  unsigned long long position = 0;
  ApiV2Mystrpush(buffer, sizeof buffer, &position, "abcdef", 6);
  ApiV2Mystrpush(buffer, sizeof buffer, &position, "g", 1);  // refused without a word
  EXPECT_EQ(position, 6u);
  EXPECT_STREQ(buffer, "abcdef");
  // The zero goes one beyond the new end, not at it.
  char dirty[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  position = 1;
  ApiV2Mystrpush(dirty, sizeof dirty, &position, "ab", 2);
  EXPECT_EQ(std::string(dirty, 8), std::string("xabx\0xxx", 8));
  for (const unsigned long long count : {~0ULL, ~0ULL - 1, ~0ULL - 3}) {
    ApiV2Mystrpush(dirty, sizeof dirty, &position, "ab", count);  // would wrap to a small sum
    EXPECT_EQ(position, 3u);
  }
  position = ~0ULL;
  ApiV2Mystrpush(dirty, 0, &position, "", 0);
  EXPECT_EQ(position, ~0ULL);
}

TEST(StringHelpers, SplitAtTheFirstSeparator) {
  struct Row {
    const char *source, *first, *second;
  };
  for (const Row& row : {Row{"a,b,c", "a", "b"}, Row{",b", "", "b"}, Row{"a,", "a", ""},
                         Row{"a@b", "a@b", ""}, Row{"", "", ""}, Row{",,", "", ""}}) {
    char first[8] = "old", second[8] = "old";
    splitvirgule(row.source, first, second);
    EXPECT_STREQ(first, row.first) << row.source;
    EXPECT_STREQ(second, row.second) << row.source;
  }
  char local[8], domain[8];
  splitat("me@x@y", local, domain);
  EXPECT_STREQ(local, "me");
  EXPECT_STREQ(domain, "x");
}

TEST(StringHelpers, CopiesAndLowerCases) {
  char* copy = nullptr;
  EXPECT_EQ(ApiV2InitCcharstringWithConst(&copy, ""), 1u);
  ApiV2MyFreeClear(copy, 1);
  EXPECT_EQ(ApiV2InitCcharstringWithConst(&copy, "abc"), 4u);
  EXPECT_STREQ(copy, "abc");
  EXPECT_EQ(ApiV2Mystrcat(ApiV2Mystrcpy(copy, "a", 0), "bc", 0), copy);  // the sizes are ignored
  EXPECT_STREQ(copy, "abc");
  ApiV2MyFreeClear(copy, 4);
  EXPECT_EQ(ApiV2InitCcharstringWithConst(nullptr, "abc"), 0u);
  char text[] = "AB\xC9Z\0CD";
  lowercasecharstring(text, 3);
  EXPECT_EQ(std::string(text, 7), std::string("ab\xC9Z\0CD", 7));
  lowercasecharstring(text, 100);  // stops at the terminator
  EXPECT_EQ(std::string(text, 7), std::string("ab\xC9z\0CD", 7));
}

}  // namespace
}  // namespace kestrune::testing
