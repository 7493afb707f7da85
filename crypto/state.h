// The library's own structures in the contexts of crypto/classic.h. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_STATE_H
#define KESTRUNE_CRYPTO_STATE_H

#include <cstddef>
#include <type_traits>

#include "crypto/classic.h"

namespace kestrune::crypto {

template <class State, std::size_t kBytes>
inline constexpr bool kFits =
    sizeof(State) <= kBytes &&
    alignof(State) <= alignof(std::max_align_t) && std::is_trivially_copyable_v<State>;

template <class State, std::size_t kBytes>
State* StateIn(classic_state<kBytes>& room) {
  static_assert(kFits<State, kBytes>);
  return reinterpret_cast<State*>(room.bytes.data());
}

template <class State, std::size_t kBytes>
const State* StateIn(const classic_state<kBytes>& room) {
  static_assert(kFits<State, kBytes>);
  return reinterpret_cast<const State*>(room.bytes.data());
}

}  // namespace kestrune::crypto

#endif
