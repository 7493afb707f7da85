#include "base/memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

namespace kestrune {
namespace {

constexpr std::size_t kLargeBlock = std::size_t{4} << 20;
constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;

// Only pages that lie in the block whole, so that no other memory is touched and none is taken beyond it.
void* PreferLargePages(void* block, std::size_t bytes) {
  if (block == nullptr || bytes < kLargeBlock) return block;
  const auto begin = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
  const std::uintptr_t end = (begin + bytes) / kLargePage * kLargePage;
  // A refusal costs speed, nothing else.
  (void)::madvise(static_cast<char*>(block) + (first - begin), end - first, MADV_HUGEPAGE);
  return block;
}

}  // namespace

void* AllocateZeroed(std::size_t bytes) {
  return PreferLargePages(std::calloc(bytes == 0 ? 1 : bytes, 1), bytes);
}

void* AllocateUncleared(std::size_t bytes) {
  return PreferLargePages(std::malloc(bytes == 0 ? 1 : bytes), bytes);
}

}  // namespace kestrune
