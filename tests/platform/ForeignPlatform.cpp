// The three platform libraries as a host of another house may have them: one file under three
// names. Programs of other tests run on it. At their end it ends the process with an error if
// something was not called, or not given back.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cwchar>

#include "zel/mediainfo/ProgramRecords.h"
#include "zel/platform/COMSupport.h"
#include "zel/platform/MediaInfoLibrary.h"
#include "zel/platform/Zel_Log.h"

namespace {

constexpr std::size_t kHead = 4;  // Keeps the text behind the mark aligned.
constexpr wchar_t kMark = 0xF0E1;

struct Calls {
  std::atomic<long> ids = 0, counts = 0, records = 0;
  ~Calls() {
    if (ids == 0 || counts == 0 || records != 0) _exit(1);
  }
} g_calls;

}  // namespace

extern "C" {

const _GUID IID_IUnknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const _GUID IID_IClassFactory = {1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

HRESULT CLSIDFromString(const wchar_t* text, _GUID* id) {
  ++g_calls.ids;
  unsigned n[11] = {};
  if (std::swscanf(text, L"%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &n[0], &n[1], &n[2], &n[3],
                   &n[4], &n[5], &n[6], &n[7], &n[8], &n[9], &n[10]) != 11) {
    return E_INVALIDARG;
  }
  *id = {n[0], static_cast<std::uint16_t>(n[1]), static_cast<std::uint16_t>(n[2]), {}};
  std::copy(n + 3, n + 11, id->Data4);
  return S_OK;
}

// A string carries a mark, so that one of another library is noticed.
wchar_t* SysAllocString(const wchar_t* text) {
  if (text == nullptr) return nullptr;
  auto* block =
      static_cast<wchar_t*>(std::malloc((kHead + std::wcslen(text) + 1) * sizeof(wchar_t)));
  block[0] = kMark;
  return std::wcscpy(block + kHead, text);
}

void SysFreeString(wchar_t* text) {
  if (text == nullptr) return;
  if (*(text - kHead) != kMark) std::abort();
  std::free(text - kHead);
}

long InterlockedIncrement(volatile long* value) {
  ++g_calls.counts;
  return __sync_add_and_fetch(value, 1);
}

long InterlockedDecrement(volatile long* value) {
  return __sync_sub_and_fetch(value, 1);
}

// A host's own manager would be made here.
HRESULT ZelCreateInstance(const _GUID&, IUnknown*, unsigned long, const _GUID&, void** out) {
  *out = nullptr;
  return CLASS_E_CLASSNOTAVAILABLE;
}

// Its pointers lead to what belongs to the host, which outlives it.
ProgramInfo* CloneProgramInfo(const ProgramInfo* info) {
  auto* copy = new ProgramInfo(*info);
  ++g_calls.records;
  return copy;
}

void FreeProgramInfo(ProgramInfo* info) {
  if (info != nullptr) --g_calls.records;
  delete info;
}

void GetAppPath(wchar_t* buffer, int capacity) {
  if (capacity > 1) std::wcscpy(buffer, L".");
}

}  // extern "C"
