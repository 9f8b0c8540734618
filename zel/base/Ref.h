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
  /// Gives the reference to the caller, and holds nothing afterwards.
  [[nodiscard]] T* Detach() { return std::exchange(object_, nullptr); }

 private:
  T* object_ = nullptr;
};

}  // namespace zel
