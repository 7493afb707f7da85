#include "sign/key_utils.h"

#include <gtest/gtest.h>

#include <string>

#include "core/instance_creator.h"
#include "core/utils.h"
#include "tests/support/bytes.h"
#include "tests/support/shifted_clock.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

struct Moment {
  const char* name;
  std::time_t now;
  const char* zone;
  int year;  // of the local calendar
  const char *certificate, *personal, *v1, *v2;
  const char* text;   // local date and time
  const char* stamp;  // day of the year, second of the day
};

class Dates : public ::testing::TestWithParam<Moment> {};

TEST_P(Dates, FollowTheLocalClock) {
  const Moment& want = GetParam();
  const ShiftedClock clock(want.now, want.zone);
  char out[64];
  TypV2Utils utils;
  EXPECT_EQ(utils.GetCurrentYear(), want.year);
  utils.GetKeyFilenameExtensionV1(out);
  EXPECT_STREQ(out, want.v1);
  utils.GetKeyFilenameExtensionV2(out);
  EXPECT_STREQ(out, want.v2);
  utils.GetSQLDateTime(out);
  EXPECT_STREQ(out, want.text);

  TypKeyUtils keys;
  EXPECT_EQ(keys.GetYearCert(out), static_cast<int>(std::string(want.certificate).size()));
  EXPECT_STREQ(out, want.certificate);
  EXPECT_EQ(keys.GetYearKestruneKey(out), static_cast<int>(std::string(want.personal).size()));
  EXPECT_STREQ(out, want.personal);
  EXPECT_EQ(keys.GetKestruneKeyName("x", out), out);
  EXPECT_EQ(out, std::string("x.") + want.certificate);
  const int written = keys.GetTimeStamp(out);
  EXPECT_EQ(static_cast<std::size_t>(written), std::string(out).size());
  EXPECT_EQ(std::string(out).find(want.stamp), 0u) << out;
  EXPECT_NE(out[std::string(want.stamp).size()], '-');
}

INSTANTIATE_TEST_SUITE_P(
    Moments, Dates,
    ::testing::Values(
        // Half an hour before the turn of the year in UTC, an hour to the east and an hour to the west.
        Moment{"TurnEast", 1798759800, "EAST-1", 2027, "127", "227", "127", "227", "2027-01-01 00:30:00",
               "0.1800."},
        Moment{"TurnWest", 1798759800, "WEST1", 2026, "126", "226", "126", "226", "2026-12-31 22:30:00",
               "364.81000."},
        Moment{"Midnight", 1798761600, "UTC0", 2027, "127", "227", "127", "227", "2027-01-01 00:00:00",
               "0.0."},
        Moment{"LeapDay", 1835481599, "UTC0", 2028, "128", "228", "128", "228", "2028-02-29 23:59:59",
               "59.86399."},
        Moment{"Before1990", 631151999, "UTC0", 1989, "189", "289", "89", "189", "1989-12-31 23:59:59",
               "364.86399."},
        Moment{"From1990", 631152000, "UTC0", 1990, "90", "190", "90", "190", "1990-01-01 00:00:00", "0.0."},
        Moment{"BeforeTheEpoch", -152665139, "UTC0", 1965, "165", "265", "65", "165", "1965-03-01 01:01:01",
               "59.3661."},
        Moment{"Before1900", -2209075200, "UTC0", 1899, "99", "199", "-1", "99", "1899-12-31 00:00:00",
               "364.0."},
        Moment{"From2100", 4102444800, "UTC0", 2100, "200", "300", "200", "300", "2100-01-01 00:00:00",
               "0.0."}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(KeyUtils, SizesTheIvArea) {
  const struct {
    unsigned long long first, second, size;
  } rows[] = {{0, 0, 4096},       {1048575, 0, 4096},     {1048576, 0, 8192},
              {1048575, 1, 8192}, {3145728, 8192, 16384}, {~0ULL, 0, 72057594037927936},
              {~0ULL, 1, 4096}};  // the sum wraps; kept so
  for (const auto& row : rows) EXPECT_EQ(TypKeyUtils().GetTailleIV(row.first, row.second), row.size);
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
  TypV2InstanceCreator no_platform;
  ASSERT_EQ(keys.InitCreate(&no_platform), 0);
  EXPECT_EQ(find("n", folder.path()), -96);
}

}  // namespace
}  // namespace kestrune::testing
