// No exception crosses an interface, and no component outlives its references.
#pragma once

#include <memory>
#include <new>
#include <utility>

#include "zel/platform/Types.h"

namespace zel::kernaldec {

/// What `body` returns; `shortOfMemory` or `failed` when it throws.
template <class Body, class Result>
Result Guarded(Body&& body, Result shortOfMemory, Result failed) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return shortOfMemory;
  } catch (...) {
    return failed;
  }
}

template <class Body>
HRESULT Guarded(Body&& body) noexcept {
  return Guarded(body, E_OUTOFMEMORY, E_FAIL);
}

/// Holds one reference on a component of ours, taken and given back on its non-delegating face.
struct ComponentRelease {
  template <class T>
  void operator()(T* component) const {
    component->NonDelegatingRelease();
  }
};
template <class T>
using ComponentPtr = std::unique_ptr<T, ComponentRelease>;

template <class T, class... Arguments>
ComponentPtr<T> MakeComponent(Arguments&&... arguments) {
  ComponentPtr<T> component(new T(std::forward<Arguments>(arguments)...));
  component->NonDelegatingAddRef();
  return component;
}

}  // namespace zel::kernaldec
