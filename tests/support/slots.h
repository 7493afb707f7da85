// Places of operations in the table of their class.
#ifndef KESTRUNE_TESTS_SUPPORT_SLOTS_H
#define KESTRUNE_TESTS_SUPPORT_SLOTS_H

#include <cstddef>
#include <cstring>

namespace kestrune::testing {

// Place of a virtual operation in its class's table, or -1 for an operation that is not virtual. A pointer to
// a virtual member holds 1 + the byte offset in the table (Itanium C++ ABI, 7.1 of its member pointers).
template <class Member>
std::ptrdiff_t SlotOf(Member member) {
  std::ptrdiff_t offset = 0;
  static_assert(sizeof member >= sizeof offset);
  std::memcpy(&offset, &member, sizeof offset);
  return offset % 2 == 1 ? offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
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
