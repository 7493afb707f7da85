#include "core/owned.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace kestrune::testing {
namespace {

struct Counted : LibraryObject<Counted> {
  static inline int killed = 0;
  Result InitCreate(Result rc) { return rc; }
  int Kill() { return ++killed; }
};

// What was handed out is initialised; an owner that did not know would delete it alive.
TEST(Owned, KillsWhatItAdoptsAndTakesNothingByAccident) {
  static_assert(!std::is_constructible_v<Owned<Counted>, Counted*&>);
  static_assert(!std::is_constructible_v<Owned<Counted>, Counted* const&>);
  Counted* const handed_out = new Counted;
  { const auto owner = Adopted(handed_out); }
  EXPECT_EQ(Counted::killed, 1);
  (void)Adopted<Counted>(nullptr);
  Owned<Counted> fresh(new Counted);
  fresh.Reset();
  EXPECT_EQ(Counted::killed, 1);
  fresh = Owned<Counted>(new Counted);
  EXPECT_EQ(fresh.Init(kNoObject), kNoObject);
  fresh.Reset();
  EXPECT_EQ(Counted::killed, 1);
}

}  // namespace
}  // namespace kestrune::testing
