// Where large buffers come from.
#ifndef KESTRUNE_BASE_MEMORY_H
#define KESTRUNE_BASE_MEMORY_H

#include <cstddef>

#include "base/export.h"

namespace kestrune {

// As calloc and malloc; null without memory; free() gives it back. A large block is backed by large pages
// where the system has them: entering a run of 100 MB page by page takes longer than deciphering a good part
// of it.
KESTRUNE_API void* AllocateZeroed(std::size_t bytes);
KESTRUNE_API void* AllocateUncleared(std::size_t bytes);

}  // namespace kestrune

#endif
