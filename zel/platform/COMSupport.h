// What the library expects of the component support library, `libCOMSupport.dylib`: the root
// interfaces, ids in text form, strings that change owners, interlocked counting, and the creation
// of other components.
//
//   zel::Ref<IMediaDecoderMgr> manager;
//   ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr,
//                     manager.ReceiveVoid());
//
// Threads: any thread may call anything here at any time.
#pragma once

#include "zel/platform/Types.h"

/// Root of every interface: looks up the object's other interfaces and counts its references.
/// Whoever receives a pointer through an out-parameter owns one reference. Threads: any.
class ZEL_API IUnknown {
 public:
  /// Stores the interface of id `riid` in `*ppv` and takes a reference for the caller.
  /// @return S_OK; E_NOINTERFACE with `*ppv` null; E_POINTER when `ppv` is null.
  virtual HRESULT QueryInterface(const _GUID& riid, void** ppv) = 0;
  /// Takes one reference. The returned count is only informative.
  virtual ULONG AddRef() = 0;
  /// Gives one reference back; the object is gone when this returns 0.
  virtual ULONG Release() = 0;

 protected:
  ~IUnknown() = default;
};

/// Creates objects of one class (what `DllGetClassObject` hands out).
class ZEL_API IClassFactory : public IUnknown {
 public:
  /// Creates an object and stores its interface `riid` in `*ppv`, with one reference for the
  /// caller.
  /// @param pUnkOuter controlling object for aggregation, or null; not null only with IID_IUnknown.
  /// @return S_OK, CLASS_E_NOAGGREGATION, E_OUTOFMEMORY, or what the new object's lookup returned.
  virtual HRESULT CreateInstance(IUnknown* pUnkOuter, const _GUID& riid, void** ppv) = 0;
  /// Counts locks of the server up (`fLock` not 0) or down. @return S_OK.
  virtual HRESULT LockServer(BOOL fLock) = 0;

 protected:
  ~IClassFactory() = default;
};

extern "C" {

/// Ids of the two root interfaces.
ZEL_API extern const _GUID IID_IUnknown;
ZEL_API extern const _GUID IID_IClassFactory;

/// Parses "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX" (hexadecimal digits of either case, with or
/// without braces) into `*id`.
/// @return S_OK; E_POINTER for a null argument; E_INVALIDARG, with `*id` zeroed, for any other
/// text.
ZEL_API HRESULT CLSIDFromString(const wchar_t* text, _GUID* id);

/// Returns a copy of a zero-terminated string for another component to free with SysFreeString.
/// @return null when `text` is null or memory is short.
ZEL_API wchar_t* SysAllocString(const wchar_t* text);
/// Frees a string made by SysAllocString; null is allowed.
ZEL_API void SysFreeString(wchar_t* text);

/// Adds 1 to `*value` atomically (sequentially consistent). @return the new value.
ZEL_API long InterlockedIncrement(volatile long* value);
/// Subtracts 1 from `*value` atomically (sequentially consistent). @return the new value.
ZEL_API long InterlockedDecrement(volatile long* value);

/// Creates the object of class `clsid` and stores its interface `iid` in `*out`, with one
/// reference.
/// @param outer controlling object for aggregation, or null.
/// @param context reserved; 0.
/// @return S_OK. With `*out` null: CLASS_E_CLASSNOTAVAILABLE when no component module offers the
///   class, or the failure of the class's factory. E_POINTER for a null `out`.
ZEL_API HRESULT ZelCreateInstance(const _GUID& clsid, IUnknown* outer, unsigned long context,
                                  const _GUID& iid, void** out);

}  // extern "C"
