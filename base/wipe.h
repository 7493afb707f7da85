// Wiping what must not stay in memory.
#ifndef KESTRUNE_BASE_WIPE_H
#define KESTRUNE_BASE_WIPE_H

#include <cstddef>

#include "base/export.h"

// Overwrites `count` bytes with zeros in a way that no optimiser removes. Null is allowed when count is 0.
KESTRUNE_API void wipe(void* bytes, std::size_t count);

#endif
