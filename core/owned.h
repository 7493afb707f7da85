// Who owns an object of the library. (Who owns bytes: base/buffer.h.)
#ifndef KESTRUNE_CORE_OWNED_H
#define KESTRUNE_CORE_OWNED_H

#include <type_traits>
#include <utility>

#include "base/bounded_text.h"
#include "base/buffer.h"
#include "core/object.h"
#include "core/result.h"

namespace kestrune {

// An object of the library from the factory to its deletion: `Kill` runs only after an `InitCreate` that
// returned kOk, the deletion always. A file is closed before it is killed: a platform's `Kill` need not close.
//   Owned<TypV2Utils> utils(creator->newTypV2Utils());
//   if (Result rc = utils.Init(); rc != kOk) return rc;
//
// What an operation handed out is initialised already, and is adopted, or it would be deleted without `Kill`. A pointer
// that has a name is therefore refused by the constructor:
//   Owned<TypV2BlockCell> red = Adopted(tree);
template <class T>
class Owned {
 public:
  Owned() noexcept = default;
  explicit Owned(T*&& made) noexcept : object_(made) {}
  template <class Named>
  requires std::is_convertible_v<Named&, T*>
  explicit Owned(Named& handed_out) = delete;  // Adopted(handed_out)
  Owned(Owned&& other) noexcept : object_(other.object_), live_(other.live_) { other.Forget(); }
  Owned& operator=(Owned&& other) noexcept {
    if (this != &other) {
      Reset();
      object_ = other.object_;
      live_ = other.live_;
      other.Forget();
    }
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { Reset(); }

  // `InitCreate` with these arguments; kNoObject when the factory refused.
  template <class... Args>
  [[nodiscard]] Result Init(Args&&... args) {
    if (object_ == nullptr) return kNoObject;
    Result rc;
    if constexpr (requires { object_->initCreate(std::forward<Args>(args)...); }) {
      rc = object_->initCreate(std::forward<Args>(args)...);
    } else {
      rc = object_->InitCreate(std::forward<Args>(args)...);
    }
    live_ = rc == kOk;
    return rc;
  }

  // Takes over an initialised object (null: none), in place of what was held.
  void Adopt(T* initialised) noexcept {
    Reset();
    object_ = initialised;
    live_ = initialised != nullptr;
  }

  // Ends the object now: `Kill` where it is due, then deletion.
  void Reset() noexcept {
    if (object_ == nullptr) return;
    if (live_) KillObject();
    DeleteObject(object_);
    Forget();
  }

  // Hands the object out; the caller kills and deletes it.
  [[nodiscard]] T* release() noexcept {
    T* object = object_;
    Forget();
    return object;
  }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  void KillObject() {
    if constexpr (requires { object_->CloseDF(); }) object_->CloseDF();
    if constexpr (requires { object_->kill(); }) {
      object_->kill();
    } else {
      object_->Kill();
    }
  }
  void Forget() noexcept {
    object_ = nullptr;
    live_ = false;
  }

  T* object_ = nullptr;
  bool live_ = false;
};

// The owner of an initialised object (null: of none).
template <class T>
[[nodiscard]] Owned<T> Adopted(T* initialised) noexcept {
  Owned<T> owner;
  owner.Adopt(initialised);
  return owner;
}

}  // namespace kestrune

#endif
