// A smart pointer for counted objects.
//
//   Ref<IMediaStream> stream;
//   decoder->GetAudioStream(stream.Receive());           // an out-parameter: the reference is ours
//   auto kept = Ref<IMediaStream>::Share(borrowed);      // borrowed: takes a reference of its own
//   auto file = Ref<IMediaInfo>::Adopt(MakeMediaInfo()); // handed over: takes no other reference
//
// Threads: a Ref is used by one thread at a time, like any value; several Refs on one object may be
// used on several threads.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace zel {

/// Holds one reference on an object with AddRef and Release, or nothing. Copies hold a reference of
/// their own.
template <class T>
class Ref {
 public:
  Ref() = default;
  Ref(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): "nothing" converts.
  Ref(const Ref& other) : object_(other.object_) {
    if (object_ != nullptr) object_->AddRef();
  }
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  /// Takes over what `other`, a Ref on a class derived from `T`, holds.
  template <class Derived, std::enable_if_t<std::is_convertible_v<Derived*, T*>, int> = 0>
  Ref(Ref<Derived>&& other) noexcept : object_(other.Detach()) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref() {
    if (object_ != nullptr) object_->Release();
  }

  /// Takes a reference of its own on `object`, which may be null.
  static Ref Share(T* object) {
    if (object != nullptr) object->AddRef();
    return Adopt(object);
  }
  /// Takes over the caller's reference on `object`, which may be null.
  static Ref Adopt(T* object) {
    Ref ref;
    ref.object_ = object;
    return ref;
  }

  /// The object, still owned by this Ref, or null.
  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

  /// For an out-parameter that hands out a reference. What was held is released first.
  T** Receive() {
    *this = nullptr;
    return &object_;
  }
  /// The same for an untyped out-parameter, as QueryInterface has.
  void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }
  /// Hands out a further reference in `*out`, as an operation does in its out-parameter.
  void CopyTo(T** out) const { *out = Ref(*this).Detach(); }
  /// Gives the reference to the caller, and holds nothing afterwards.
  [[nodiscard]] T* Detach() { return std::exchange(object_, nullptr); }

 private:
  T* object_ = nullptr;
};

}  // namespace zel
