// Holds one reference on a component object for as long as a scope.
#pragma once

#include <utility>

namespace zel {

template <class T>
class Ref {
 public:
  Ref() = default;
  /// Takes a reference on `object`, which may be null.
  explicit Ref(T* object) : m_object(object) {
    if (m_object != nullptr) m_object->AddRef();
  }
  Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }
  ~Ref() {
    if (m_object != nullptr) m_object->Release();
  }

  T* get() const { return m_object; }
  T* operator->() const { return m_object; }
  explicit operator bool() const { return m_object != nullptr; }
  /// For functions that hand out a reference; the Ref must be empty.
  T** out() { return &m_object; }
  /// Gives the reference to the caller.
  T* release() { return std::exchange(m_object, nullptr); }

 private:
  T* m_object = nullptr;
};

}  // namespace zel
