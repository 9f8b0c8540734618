// libCOMSupport.dylib. Its strings carry a mark, so that one freed by another library, or the other
// way round, is noticed.
#include "zel/platform/COMSupport.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cwchar>
#include <string>

#include "tests/support/foreign/Counted.h"

FOREIGN_COUNTER(CLSIDFromString);
FOREIGN_COUNTER(SysAllocString);
FOREIGN_COUNTER(SysFreeString);
FOREIGN_COUNTER(InterlockedIncrement);
FOREIGN_COUNTER(InterlockedDecrement);
FOREIGN_COUNTER(ZelCreateInstance);

namespace {

constexpr wchar_t kMark = 0xF0E1;
constexpr std::size_t kHead = 4;  // Keeps the text aligned.

}  // namespace

extern "C" {

const _GUID IID_IUnknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const _GUID IID_IClassFactory = {1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

HRESULT CLSIDFromString(const wchar_t* text, _GUID* id) {
  ++CLSIDFromString_calls;
  unsigned first = 0;
  unsigned part[10] = {};
  const int found =
      std::swscanf(text, L"%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &first, &part[0], &part[1],
                   &part[2], &part[3], &part[4], &part[5], &part[6], &part[7], &part[8], &part[9]);
  if (found != 11) return E_INVALIDARG;
  id->Data1 = first;
  id->Data2 = static_cast<std::uint16_t>(part[0]);
  id->Data3 = static_cast<std::uint16_t>(part[1]);
  for (int i = 0; i < 8; ++i) id->Data4[i] = static_cast<std::uint8_t>(part[2 + i]);
  return S_OK;
}

wchar_t* SysAllocString(const wchar_t* text) {
  ++SysAllocString_calls;
  if (text == nullptr) return nullptr;
  const std::size_t size = std::wcslen(text) + 1;
  auto* block = static_cast<wchar_t*>(std::malloc((kHead + size) * sizeof(wchar_t)));
  if (block == nullptr) return nullptr;
  block[0] = kMark;
  std::wmemcpy(block + kHead, text, size);
  return block + kHead;
}

void SysFreeString(wchar_t* text) {
  if (text == nullptr) return;
  ++SysFreeString_calls;
  if (text[-static_cast<std::ptrdiff_t>(kHead)] != kMark) std::abort();
  std::free(text - kHead);
}

long InterlockedIncrement(volatile long* value) {
  ++InterlockedIncrement_calls;
  return __sync_add_and_fetch(value, 1);
}

long InterlockedDecrement(volatile long* value) {
  ++InterlockedDecrement_calls;
  return __sync_sub_and_fetch(value, 1);
}

// The decoders are in a library that needs the compositor's, which needs this one.
HRESULT ZelCreateInstance(const _GUID& /*clsid*/, IUnknown* /*outer*/, unsigned long /*context*/,
                          const _GUID& iid, void** out) {
  ++ZelCreateInstance_calls;
  Dl_info self = {};
  dladdr(reinterpret_cast<void*>(&SysFreeString), &self);
  std::string path = self.dli_fname;
  path = path.substr(0, path.rfind('/') + 1) + "libforeign_decoder.so";
  void* library = dlopen(path.c_str(), RTLD_NOW);
  if (library == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
  const auto create =
      reinterpret_cast<HRESULT (*)(const _GUID&, void**)>(dlsym(library, "CreateForeignManager"));
  return create != nullptr ? create(iid, out) : CLASS_E_CLASSNOTAVAILABLE;
}

}  // extern "C"
