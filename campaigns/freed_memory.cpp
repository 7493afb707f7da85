#include "campaigns/freed_memory.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace kestrune::testing {
namespace {

constexpr std::size_t kStackBytes = std::size_t{2} << 20;
constexpr std::size_t kMostLeftovers = 200;
constexpr std::size_t kDeadStackBytes =
    16384;  // how far below a call it is looked for what returned functions left

// What the watch finds stands in memory of its own: nothing is allocated while free() runs.
struct Watch {
  const std::vector<Mark>* marks = nullptr;
  const char* stack = nullptr;
  Leftover found[kMostLeftovers];
  std::size_t count = 0;
};
Watch watch;
thread_local bool watching = false;

const void* BaseOf(const void* address, const char** file = nullptr) {
  Dl_info info{};
  if (::dladdr(address, &info) == 0) return nullptr;
  if (file != nullptr) *file = info.dli_fname;
  return info.dli_fbase;
}

// Whether the program itself, perhaps through the C or C++ library, gave the block back.
bool FreedByUs(void* const* callers, int count) {
  const void* const own = BaseOf(reinterpret_cast<const void*>(&LeftoversOf));
  for (int i = 2; i < count; ++i) {  // behind the two functions of the watch
    const char* file = "";
    const void* const base = BaseOf(callers[i], &file);
    if (base == own) return true;
    if (std::strstr(file, "libstdc++") == nullptr && std::strstr(file, "libc++") == nullptr &&
        std::strstr(file, "libc.so") == nullptr)
      return false;
  }
  return true;
}

void Note(const Leftover& leftover) {
  const auto same = [&](const Leftover& other) {
    return other.mark == leftover.mark && (other.block_bytes == 0) == (leftover.block_bytes == 0) &&
           std::equal(std::begin(other.callers), std::end(other.callers), leftover.callers);
  };
  if (watch.count == kMostLeftovers || std::any_of(watch.found, watch.found + watch.count, same)) return;
  watch.found[watch.count++] = leftover;
}

// Looks for every mark in `bytes` bytes: a block that is being freed, or a piece of the stack that is not in use.
[[gnu::noinline]] void Search(const void* begin, std::size_t bytes, bool is_block) {
  watching = false;  // looking up the callers may free
  for (std::size_t i = 0; i < watch.marks->size(); ++i) {
    const std::string& mark = (*watch.marks)[i].bytes;
    const void* const found = ::memmem(begin, bytes, mark.data(), mark.size());
    if (found == nullptr) continue;
    const char* const at = static_cast<const char*>(found);
    Leftover leftover;
    leftover.mark = i;
    leftover.block_bytes = is_block ? bytes : 0;
    leftover.offset = static_cast<std::size_t>(is_block ? at - static_cast<const char*>(begin)
                                                        : watch.stack + kStackBytes - at);
    leftover.caller_count = ::backtrace(leftover.callers, Leftover::kFrames);
    if (!is_block || FreedByUs(leftover.callers, leftover.caller_count)) Note(leftover);
  }
  watching = true;
}

// What returned functions left on the stack stays until others write over it, so it is looked at often.
[[gnu::noinline]] void SearchDeadStack() {
  const char* const here = static_cast<const char*>(__builtin_frame_address(0));
  const char* const begin = std::max(watch.stack, here - kDeadStackBytes);
  if (here > begin) Search(begin, static_cast<std::size_t>(here - begin), false);
}

void* RunWatched(void* operation) {
  watching = true;
  (*static_cast<const std::function<void()>*>(operation))();
  watching = false;
  return nullptr;
}

}  // namespace

std::vector<Leftover> LeftoversOf(const std::vector<Mark>& marks, const std::function<void()>& operation) {
  void* warm[1];
  ::backtrace(warm, 1);  // loads what it needs
  watch.marks = &marks;
  watch.count = 0;
  char* const stack = static_cast<char*>(
      ::mmap(nullptr, kStackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  watch.stack = stack;
  pthread_attr_t attributes;
  pthread_t thread;
  if (stack == MAP_FAILED || ::pthread_attr_init(&attributes) != 0 ||
      ::pthread_attr_setstack(&attributes, stack, kStackBytes) != 0 ||
      ::pthread_create(&thread, &attributes, RunWatched, const_cast<std::function<void()>*>(&operation)) !=
          0) {
    std::abort();
  }
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&attributes);
  Search(stack, kStackBytes, false);  // at leisure: nothing has been called since
  watching = false;
  ::munmap(stack, kStackBytes);
  return {watch.found, watch.found + watch.count};
}

std::string CallersOf(const Leftover& leftover) {
  std::string lines;
  for (int i = 2; i < leftover.caller_count; ++i) {
    const char* file = "";
    const void* const base = BaseOf(leftover.callers[i], &file);
    const auto offset = reinterpret_cast<std::uintptr_t>(leftover.callers[i]) -
                        reinterpret_cast<std::uintptr_t>(base) - 1;  // in the call, not behind it
    char command[4096];
    std::snprintf(command, sizeof command, "addr2line -Cfpse '%s' %#zx", file, offset);
    FILE* const pipe = ::popen(command, "r");
    char line[1024] = "";
    if (pipe == nullptr || std::fgets(line, sizeof line, pipe) == nullptr) std::strcpy(line, "?\n");
    if (pipe != nullptr) ::pclose(pipe);
    lines += "      ";
    lines += line;
  }
  return lines;
}

}  // namespace kestrune::testing

// The C library's own, in whose place the program's are called by every library.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void __libc_free(void* block);
void* __libc_realloc(void* block, std::size_t bytes);

void free(void* block) {
  if (kestrune::testing::watching && block != nullptr) {
    kestrune::testing::SearchDeadStack();
    kestrune::testing::Search(block, ::malloc_usable_size(block), true);
  }
  __libc_free(block);
}

// Filled, so that nothing older is taken for a leftover.
void* malloc(std::size_t bytes) {
  if (kestrune::testing::watching) kestrune::testing::SearchDeadStack();
  void* const block = __libc_malloc(bytes);
  if (kestrune::testing::watching && block != nullptr) {
    std::memset(block, 0xA5, ::malloc_usable_size(block));
  }
  return block;
}

// Always moves, so that what a move leaves behind is seen.
void* realloc(void* block, std::size_t bytes) {
  if (!kestrune::testing::watching || block == nullptr) return __libc_realloc(block, bytes);
  void* const moved = malloc(bytes == 0 ? 1 : bytes);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, block, std::min(bytes, ::malloc_usable_size(block)));
  free(block);
  return moved;
}
}
