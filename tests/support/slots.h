// Checking the slots of a class: other programs call its operations by their place in the table.
#ifndef KESTRUNE_TESTS_SUPPORT_SLOTS_H
#define KESTRUNE_TESTS_SUPPORT_SLOTS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <typeinfo>
#include <utility>

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

// The operations of `Class`, all of them in slot order: no other is virtual, nor is its destructor.
template <class Class, class... Members>
void ExpectSlots(Members... members) {
  static_assert(!std::has_virtual_destructor_v<Class>);
  std::ptrdiff_t slot = 0;
  (..., [&] {
    EXPECT_EQ(SlotOf(members), slot) << typeid(Class).name();
    ++slot;
  }());
  EXPECT_EQ(SlotCount<Class>(), slot) << typeid(Class).name();
}

}  // namespace kestrune::testing

#endif
