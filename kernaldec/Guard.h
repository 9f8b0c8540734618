// No exception crosses an interface.
#pragma once

#include <new>

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

}  // namespace zel::kernaldec
