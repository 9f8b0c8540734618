#include "zel/platform/COMSupport.h"

#include <cstring>
#include <cwchar>
#include <new>

extern "C" {

// 00000000-0000-0000-C000-000000000046 and 00000001-0000-0000-C000-000000000046.
const _GUID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const _GUID IID_IClassFactory = {0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

HRESULT CLSIDFromString(const wchar_t* text, _GUID* id) {
  if (text == nullptr || id == nullptr) return E_POINTER;
  *id = {};
  const bool braced = text[0] == L'{';
  if (braced) ++text;

  std::uint8_t bytes[16];
  int digits = 0;
  for (int at = 0; at < 36; ++at) {
    const wchar_t c = *text++;  // Stops at the terminator, which is neither a digit nor a hyphen.
    if (at == 8 || at == 13 || at == 18 || at == 23) {
      if (c != L'-') return E_INVALIDARG;
      continue;
    }
    int value = 0;
    if (c >= L'0' && c <= L'9') {
      value = c - L'0';
    } else if (c >= L'a' && c <= L'f') {
      value = c - L'a' + 10;
    } else if (c >= L'A' && c <= L'F') {
      value = c - L'A' + 10;
    } else {
      return E_INVALIDARG;
    }
    std::uint8_t& byte = bytes[digits / 2];
    byte = static_cast<std::uint8_t>(digits % 2 == 0 ? value << 4 : byte | value);
    ++digits;
  }
  if (braced && *text++ != L'}') return E_INVALIDARG;
  if (*text != L'\0') return E_INVALIDARG;

  // The text has the three leading groups most significant digit first; the record holds numbers.
  id->Data1 = static_cast<std::uint32_t>(bytes[0]) << 24 |
              static_cast<std::uint32_t>(bytes[1]) << 16 |
              static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
  id->Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  id->Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  std::memcpy(id->Data4, bytes + 8, 8);
  return S_OK;
}

wchar_t* SysAllocString(const wchar_t* text) {
  if (text == nullptr) return nullptr;
  const std::size_t size = std::wcslen(text) + 1;
  auto* copy = new (std::nothrow) wchar_t[size];
  if (copy != nullptr) std::wmemcpy(copy, text, size);
  return copy;
}

void SysFreeString(wchar_t* text) {
  delete[] text;
}

long InterlockedIncrement(volatile long* value) {
  return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}

long InterlockedDecrement(volatile long* value) {
  return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

}  // extern "C"
