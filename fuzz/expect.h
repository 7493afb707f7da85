// What every target asks of the library.
#ifndef KESTRUNE_FUZZ_EXPECT_H
#define KESTRUNE_FUZZ_EXPECT_H

#include <cstdlib>

namespace kestrune::testing {

// An end of the program is what the search looks for.
inline void Expect(bool holds) {
  if (!holds) std::abort();
}

}  // namespace kestrune::testing

#endif
