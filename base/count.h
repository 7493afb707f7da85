// How many bytes, and where: numbers that files and blocks state in 64 bits.
#ifndef KESTRUNE_BASE_COUNT_H
#define KESTRUNE_BASE_COUNT_H

#include <limits>

namespace kestrune {

using Count = unsigned long long;

inline constexpr Count kLargestCount = std::numeric_limits<Count>::max();

}  // namespace kestrune

#endif
