#include "sign/key_utils.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "core/instance_creator.h"
#include "core/utils.h"
#include "tests/support/bytes.h"
#include "tests/support/rows.h"
#include "tests/support/shifted_clock.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

// Personal keys carry 100 more than certificates, and the second generation of names 100 more than the first.
TEST(Dates, FollowTheLocalClock) {
  for (const auto& [now, zone, year, certificate, text, stamp] : Rows<6>("sign.txt", "dates")) {
    SCOPED_TRACE(text);
    const ShiftedClock clock(Number<std::time_t>(now), zone);
    char out[64];
    TypV2Utils utils;
    EXPECT_EQ(utils.GetCurrentYear(), Number(year));
    utils.GetKeyFilenameExtensionV1(out);
    EXPECT_EQ(out, std::to_string(Number(year) - 1900));
    utils.GetKeyFilenameExtensionV2(out);
    EXPECT_EQ(out, std::to_string(Number(year) - 1800));
    utils.GetSQLDateTime(out);
    EXPECT_EQ(out, text);
    TypKeyUtils keys;
    EXPECT_EQ(keys.GetYearCert(out), static_cast<int>(certificate.size()));
    EXPECT_EQ(out, certificate);
    EXPECT_EQ(keys.GetYearKestruneKey(out), 3);
    EXPECT_EQ(out, std::to_string(Number(certificate) + 100));
    EXPECT_EQ(keys.GetKestruneKeyName("x", out), out);
    EXPECT_EQ(out, "x." + certificate);
    const int written = keys.GetTimeStamp(out);
    EXPECT_EQ(std::strlen(out), static_cast<std::size_t>(written));
    EXPECT_TRUE(std::string(out).starts_with(stamp)) << out;
  }
}

TEST(KeyUtils, SizesTheIvArea) {
  const unsigned long long rows[][3] = {
      {1048575, 0, 4096}, {1048575, 1, 8192}, {~0ULL, 1, 4096}};  // wraps; kept so
  for (const auto& [first, second, size] : rows) EXPECT_EQ(TypKeyUtils().GetTailleIV(first, second), size);
}

// Only the current year counts, and the letter nearest to 'z'.
TEST(KeyUtils, FindsTheSigningKeyOfTheYear) {
  const ShiftedClock clock(1798759800, "EAST-1");  // already 2027 here, still 2026 in UTC
  const TempFolder folder;
  TypV2InstanceCreatorUnix creator;
  TypKeyUtils keys;
  ASSERT_EQ(keys.InitCreate(&creator), 0);
  char found[256] = "old";
  const auto find = [&](const std::string& name, const std::string& where) {
    return keys.GetSignPrivateKey(name.c_str(), where.c_str(), found);
  };
  for (const char* other : {"n.a.126.key", "n.A.127.key", "n.127.key", "m.z.127.key", "n.z.127.pem"}) {
    WriteFile(folder.File(other), "");
  }
  EXPECT_EQ(find("n", folder.path()), -103);
  EXPECT_STREQ(found, "");
  for (const char* next : {"n.a.127.key", "n.y.127.key", "n.z.127.key"}) {
    WriteFile(folder.File(next), "");
    EXPECT_EQ(find("n", folder.path()), 0);
    EXPECT_STREQ(found, next);
  }
  // A path of 255 characters is the longest; the file of 256 is there, too, but cannot be named.
  const std::string longest(255 - folder.path().size() - std::string(".z.127.key").size(), 'l');
  for (const std::string& name : {longest, longest + "l"}) {
    WriteFile(folder.File(name + ".z.127.key"), "");
    EXPECT_EQ(find(name, folder.path()), name == longest ? 0 : -103);
  }
}

}  // namespace
}  // namespace kestrune::testing
