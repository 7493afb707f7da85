// Sealing while the year turns.
#include <filesystem>

#include "tests/envelope/envelope_folder.h"
#include "tests/support/shifted_clock.h"

namespace kestrune::testing {
namespace {

constexpr std::time_t kOldYear = 1798761599;  // 2026-12-31 23:59:59
constexpr std::time_t kNewYear = kOldYear + 1;
constexpr std::time_t kWholeYear = 365 * 24 * 3600;

// Keys of both years, with other pads in each.
struct NewYear : ::testing::Test, ShiftedClock, EnvelopeFolder {
  NewYear() : ShiftedClock(kOldYear, "UTC0"), old_pads(pads()) {
    personal.first_pad = PadOf(16 * kPadChunk, 21);
    personal.second_pad = PadOf(4 * kPadChunk, 22);
    master.pad = PadOf(16 * kPadChunk, 24);
    const ShiftedClock later(kNewYear, "UTC0");
    AddSigningKey("rsa2048", "medecin");
    AddUser("durand");
    WriteFile(File("Master." + PersonalKeyYear()), master.File());
  }
  Pads old_pads;
};

TEST_F(NewYear, WheneverItTurnsAllKeysAreOfOneYear) {
  for (int turn = 0, asked = 0; turn <= asked; ++turn) {
    asked = 0;
    const ShiftedClock clock([&] { return asked++ < turn ? kOldYear : kNewYear; }, "UTC0");
    Bytes block;
    ASSERT_EQ(Seal(Letter(), &block), kOk) << turn;
    const bool is_new = ValueOf(ReadFlatTree(block).xml, "N") == "medecin.z.127";
    const Layers layers = TakeApart(block, is_new ? pads() : old_pads);  // throws with the wrong ones
    for (const std::string& xml : {layers.grey.xml, layers.red.cells.at(0).xml}) {
      EXPECT_EQ(ValueOf(xml, "C"), is_new ? "durand.227" : "durand.226") << turn;
    }
    for (const std::string& xml : {layers.kest.xml, layers.red.cells.at(1).xml}) {
      EXPECT_EQ(ValueOf(xml, "N"), is_new ? "medecin.z.127" : "medecin.z.126") << turn;
    }
  }
}

TEST_F(NewYear, AClockThatKeepsJumpingEndsIt) {
  for (int year = 128; year < 300; ++year) {
    for (const auto& [name, suffix, number] :
         {std::tuple("medecin.z.", ".key", year), std::tuple("durand.", "", year + 100),
          std::tuple("Master.", "", year + 100)}) {
      std::filesystem::create_symlink(File(name + std::to_string(number - year + 127) + suffix),
                                      File(name + std::to_string(number) + suffix));
    }
  }
  int asked = 0;
  const ShiftedClock clock([&] { return kNewYear + asked++ * kWholeYear; }, "UTC0");
  Bytes block;
  EXPECT_EQ(Seal(Letter(), &block), envelope::kNoSteadyYear);
  EXPECT_TRUE(block.empty());
  EXPECT_LT(asked, 150);  // within the years for which there are keys
}

}  // namespace
}  // namespace kestrune::testing
