// Sealing while the year turns.
#include "tests/envelope/envelope_folder.h"
#include "tests/support/shifted_clock.h"

namespace kestrune::testing {
namespace {

constexpr std::time_t kOldYear = 1798761599;  // 2026-12-31 23:59:59
constexpr std::time_t kNewYear = kOldYear + 1;

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
  int asked = 0;
  Bytes block;
  for (int turn = 0; turn <= asked; ++turn) {
    asked = 0;
    const ShiftedClock clock([&] { return asked++ < turn ? kOldYear : kNewYear; }, "UTC0");
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
  // A clock that jumps at the end of each attempt.
  const int each = asked;
  asked = 0;
  const ShiftedClock clock([&] { return asked++ / (each - 1) % 2 == 0 ? kOldYear : kNewYear; }, "UTC0");
  EXPECT_EQ(Seal(Letter(), &block), envelope::kNoSteadyYear);
  EXPECT_TRUE(block.empty());
  EXPECT_EQ(asked, 3 * each);
}

}  // namespace
}  // namespace kestrune::testing
