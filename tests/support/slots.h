// Places of operations in the table of their class.
#ifndef KESTRUNE_TESTS_SUPPORT_SLOTS_H
#define KESTRUNE_TESTS_SUPPORT_SLOTS_H

#include <cstddef>
#include <cstring>

namespace kestrune::testing {

// Place of a virtual operation in its class's table, or -1 for an operation that is not virtual. A pointer to
// a virtual member holds the byte offset in the table and a bit that says so (Itanium C++ ABI, 2.3), which on ARM stands
// in its second half: there, any address may be odd.
template <class Member>
std::ptrdiff_t SlotOf(Member member) {
  struct {
    std::ptrdiff_t offset, adjustment;
  } parts{};
  static_assert(sizeof member == sizeof parts);
  std::memcpy(&parts, &member, sizeof parts);
#if defined(__arm__) || defined(__aarch64__)
  const std::ptrdiff_t has_flag = parts.adjustment;
#else
  const std::ptrdiff_t has_flag = parts.offset;
#endif
  return has_flag % 2 == 1 ? parts.offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

// How many virtual operations a class has: the place that its subclass's own first one takes.
template <class Class>
std::ptrdiff_t SlotCount() {
  struct Subclass : Class {
    virtual void OneMore() {}
  };
  return SlotOf(&Subclass::OneMore);
}

}  // namespace kestrune::testing

#endif
