// How objects of the library are made and deleted.
#ifndef KESTRUNE_CORE_OBJECT_H
#define KESTRUNE_CORE_OBJECT_H

#include <cstddef>
#include <new>

namespace kestrune {

// Base of every class of the library; it adds neither a slot nor a byte.
//
// The classes are tables of virtual operations without a virtual destructor, yet a platform subclass is
// deleted through its base. A destroying operator delete makes that well defined: it runs the base's own
// destructor and gives the memory back without naming a size, which would be the base's and wrong. A
// subclass must therefore keep nothing that its destructor would have to release.
template <class T>
class LibraryObject {
 public:
  static void* operator new(std::size_t bytes) { return ::operator new(bytes); }
  static void* operator new(std::size_t bytes, const std::nothrow_t& tag) noexcept {
    return ::operator new(bytes, tag);
  }
  // Counterparts of the two above, for a constructor that throws; deletion itself is the one below.
  static void operator delete(void* memory) noexcept { ::operator delete(memory); }
  static void operator delete(void* memory, const std::nothrow_t& tag) noexcept {
    ::operator delete(memory, tag);
  }
  static void operator delete(LibraryObject* base, std::destroying_delete_t) noexcept {
    T* const object = static_cast<T*>(base);
    object->T::~T();
    ::operator delete(static_cast<void*>(object));
  }
};

// Deletes an object of the library; null is allowed.
template <class T>
void DeleteObject(T* object) noexcept {
  if (object != nullptr) T::operator delete (object, std::destroying_delete_t{});
}

}  // namespace kestrune

#endif
