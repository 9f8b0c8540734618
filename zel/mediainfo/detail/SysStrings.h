// Texts that leave the library as strings of the platform.
#pragma once

#include <cwchar>

#include "zel/platform/COMSupport.h"

namespace zel {

/// Stores a new string, copied from a text inside a fixed array, in `*out`, to be freed with
/// SysFreeString. A text that fills its array needs no terminator.
/// @return S_OK; E_OUTOFMEMORY with `*out` untouched.
template <std::size_t N>
HRESULT CopyText(const wchar_t (&text)[N], wchar_t** out) {
  wchar_t terminated[N + 1];
  terminated[N] = L'\0';
  std::wmemcpy(terminated, text, N);
  wchar_t* copy = SysAllocString(terminated);
  if (copy == nullptr) return E_OUTOFMEMORY;
  *out = copy;
  return S_OK;
}

}  // namespace zel
