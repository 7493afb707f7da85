// What surrounds every flat entry point.
#ifndef KESTRUNE_CORE_ENTRY_POINT_H
#define KESTRUNE_CORE_ENTRY_POINT_H

#include <new>
#include <stdexcept>

#include "core/result.h"

namespace kestrune {

// Runs the body of an entry point. Failures are result codes, never exceptions: memory that the standard
// library could not get is the same -96 as any other.
template <class Body>
auto EntryPoint(Body&& body) noexcept -> decltype(body()) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return kNoObject;
  } catch (const std::length_error&) {
    return kNoObject;  // more than there can be is more than there is
  }
}

}  // namespace kestrune

#endif
