// No exception crosses an interface.
//
//   HRESULT Stream::GetStreamInfo(IStreamInfo** info) {
//     return Guarded([&] { return Describe(info); });  // E_OUTOFMEMORY when Describe runs short
//   }
#pragma once

#include <new>

#include "zel/platform/Types.h"

namespace zel::kernaldec {

/// Returns what `body` returns; `shortOfMemory` when it throws std::bad_alloc, `failed` when it
/// throws anything else.
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

/// The same with E_OUTOFMEMORY and E_FAIL.
template <class Body>
HRESULT Guarded(Body&& body) noexcept {
  return Guarded(body, E_OUTOFMEMORY, E_FAIL);
}

}  // namespace zel::kernaldec
