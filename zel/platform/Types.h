// Fundamental types of the component object model and the result codes that its operations return.
//
//   zel::Ref<IZelSample> sample;
//   const HRESULT result = object->QueryInterface(IID_IZelSample, sample.ReceiveVoid());
//   if (!ZelSucceeded(result)) return result;  // E_NOINTERFACE, for instance
#pragma once

#include <cstddef>
#include <cstdint>

/// Marks what the library exports; everything else is compiled with hidden visibility.
#define ZEL_API __attribute__((visibility("default")))

/// Result of an interface operation: 0 and positive values are successes, negative values failures.
using HRESULT = std::int32_t;
/// A reference count as `AddRef` and `Release` return it.
using ULONG = std::uint32_t;
/// A truth value that crosses an interface: 0 or not 0.
using BOOL = std::int32_t;

/// Class and interface identifier, 16 bytes in the standard GUID layout. Ids are compared as 16 raw
/// bytes; there is no order among them.
struct _GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
static_assert(sizeof(_GUID) == 16);
static_assert(offsetof(_GUID, Data2) == 4 && offsetof(_GUID, Data3) == 6 &&
              offsetof(_GUID, Data4) == 8);

namespace zel {
/// Specialised beside class `T`, and a friend of it: holds the assertions on where its members lie.
template <class T>
struct Layout;
}  // namespace zel

/// Success.
constexpr HRESULT S_OK = 0;
/// Nothing done, or nothing to give: no input, no description, id not found.
constexpr HRESULT S_FALSE = 1;
/// An object could not be allocated.
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x80000002U);
/// An argument cannot be used: a null stream, a stream without audio, a file that does not open.
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80000003U);
/// The object does not expose the requested interface.
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80000004U);
/// A required pointer is null.
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80000005U);
/// There is no record or list to answer from, or a component is missing.
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80000008U);
/// The operation is not possible in this state or for these arguments.
constexpr HRESULT E_ZEL_STATE = static_cast<HRESULT>(0x80000010U);
/// The operation is not implemented.
constexpr HRESULT E_ZEL_NOTIMPL = static_cast<HRESULT>(0x80000012U);
/// An outer object was given together with an interface other than `IUnknown`.
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110U);
/// No class has the requested class id.
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111U);
/// A wait ended because its time was over.
constexpr std::uint32_t WAIT_TIMEOUT = 0x102;

namespace zel {

/// 100-ns units in a second: the unit of time stamps and durations.
inline constexpr long long kTicksPerSecond = 10'000'000;

}  // namespace zel

/// True for results that are not failures.
constexpr bool ZelSucceeded(HRESULT hr) {
  return hr >= 0;
}

/// Byte-wise comparison of two ids.
inline bool ZelIsEqualGUID(const _GUID& a, const _GUID& b) {
  return __builtin_memcmp(&a, &b, sizeof(_GUID)) == 0;
}
