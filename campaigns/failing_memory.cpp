#include "campaigns/failing_memory.h"

#include <unwind.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>

// Behind ours stands the C library's own allocator or, where a sanitizer is at work, the sanitizer's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KESTRUNE_REAL(name) __interceptor_##name
#else
#define KESTRUNE_REAL(name) __libc_##name
#endif

extern "C" {
void* KESTRUNE_REAL(malloc)(std::size_t);
void* KESTRUNE_REAL(calloc)(std::size_t, std::size_t);
void* KESTRUNE_REAL(realloc)(void*, std::size_t);
void* KESTRUNE_REAL(memalign)(std::size_t, std::size_t);
void KESTRUNE_REAL(free)(void*);
}

namespace {

constexpr std::size_t kMostCallers = std::size_t{1} << 18;

struct State {
  bool watched = false;
  bool recording = false;
  bool and_all_behind = false;
  bool has_failed = false;
  std::size_t nth = 0;
  std::size_t count = 0;
  long living = 0;
};
State g_state;
std::array<std::uint64_t, kMostCallers> g_callers;
std::atomic<bool>* g_told = nullptr;

// FNV-1a over the return addresses. Not backtrace(), which loads a library first.
_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* number) {
  auto& sum = *static_cast<std::uint64_t*>(number);
  sum = (sum ^ _Unwind_GetIP(context)) * 1099511628211U;
  return _URC_NO_REASON;
}

std::uint64_t CallStack() {
  std::uint64_t number = 14695981039346656037U;
  (void)_Unwind_Backtrace(AddFrame, &number);
  return number;
}

bool Fails() {
  if (!g_state.watched) return false;
  const std::size_t index = g_state.count++;
  if (g_state.recording && index < kMostCallers) {
    g_state.watched = false;
    g_callers[index] = CallStack();
    g_state.watched = true;
  }
  const bool fails =
      g_state.nth != 0 && (g_state.and_all_behind ? index + 1 >= g_state.nth : index + 1 == g_state.nth);
  g_state.has_failed = g_state.has_failed || fails;
  if (fails) errno = ENOMEM;
  return fails;
}

void* Counted(void* block) {
  if (block != nullptr) ++g_state.living;
  return block;
}

void* New(std::size_t size) {
  return std::malloc(size == 0 ? 1 : size);
}

void* NewOrThrow(std::size_t size) {
  void* const block = New(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) noexcept {
  return Fails() ? nullptr : Counted(KESTRUNE_REAL(malloc)(size));
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return Fails() ? nullptr : Counted(KESTRUNE_REAL(calloc)(count, size));
}
void* realloc(void* block, std::size_t size) noexcept {
  if (Fails()) return nullptr;
  void* const moved = KESTRUNE_REAL(realloc)(block, size);
  return block == nullptr ? Counted(moved) : moved;
}
// Of exceptions, for which a C++ library keeps a reserve: does not fail here.
int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept {
  void* const block = Counted(KESTRUNE_REAL(memalign)(alignment, size));
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}
void free(void* block) noexcept {
  if (block != nullptr) --g_state.living;
  KESTRUNE_REAL(free)(block);
}
}

void* operator new(std::size_t size) {
  return NewOrThrow(size);
}
void* operator new[](std::size_t size) {
  return NewOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return New(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return New(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}

namespace kestrune::testing {

void FailingMemory::Plan(std::size_t nth, bool and_all_behind) {
  g_state.recording = false;
  g_state.and_all_behind = and_all_behind;
  g_state.has_failed = false;
  g_state.nth = nth;
  g_state.count = 0;
}

void FailingMemory::PlanRecording() {
  (void)CallStack();  // the first one may allocate
  Plan(0);
  g_state.recording = true;
}

std::size_t FailingMemory::Count() {
  return g_state.count;
}
bool FailingMemory::HasFailed() {
  return g_state.has_failed;
}
long FailingMemory::Living() {
  return g_state.living;
}
std::vector<std::uint64_t> FailingMemory::Callers() {
  const std::size_t count = g_state.count < kMostCallers ? g_state.count : kMostCallers;
  return {g_callers.data(), g_callers.data() + count};
}

void FailingMemory::ShareWatched(std::atomic<bool>* told) {
  g_told = told;
}

FailingMemory::Watched::Watched() {
  g_state.watched = true;
  if (g_told != nullptr) *g_told = true;
}
FailingMemory::Watched::~Watched() {
  g_state.watched = false;
  if (g_told != nullptr) *g_told = false;
}

}  // namespace kestrune::testing
