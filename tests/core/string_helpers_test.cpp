#include "core/string_helpers.h"

#include <gtest/gtest.h>

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
}

TEST(StringHelpers, SplitAtTheFirstSeparator) {
  const char* const rows[][3] = {{"a,b,c", "a", "b"}, {",b", "", "b"}, {"a,", "a", ""}, {"a@b", "a@b", ""}};
  for (const auto& [source, head, tail] : rows) {
    char first[8] = "old", second[8] = "old";
    splitvirgule(source, first, second);
    EXPECT_STREQ(first, head) << source;
    EXPECT_STREQ(second, tail) << source;
  }
  char local[8], domain[8];
  splitat("me@x@y", local, domain);
  EXPECT_STREQ(local, "me");
  EXPECT_STREQ(domain, "x");
}

}  // namespace
}  // namespace kestrune::testing
