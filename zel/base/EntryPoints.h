// The four functions that a host looks up after it has loaded the library. C linkage; any thread
// may call any of them at any time.
#pragma once

#include "zel/platform/COMSupport.h"

extern "C" {

/// Hands out the class factory of class `rclsid` in `*ppv`, with one reference for the caller. A
/// host then calls the factory's CreateInstance and releases the factory.
/// @param rclsid CLSID_CAudioCompositor.
/// @param riid IID_IClassFactory or IID_IUnknown.
/// @return S_OK; E_NOINTERFACE for another `riid`; CLASS_E_CLASSNOTAVAILABLE for another class
/// (`*ppv` is
///   then untouched); E_POINTER; E_OUTOFMEMORY.
ZEL_API HRESULT DllGetClassObject(const _GUID& rclsid, const _GUID& riid, void** ppv);

/// 0: the library may always be unloaded once its objects are released.
ZEL_API HRESULT DllCanUnloadNow();

/// There is nothing to register; both return 0. They may be called any number of times.
ZEL_API HRESULT DllRegisterServer();
ZEL_API HRESULT DllUnregisterServer();

}  // extern "C"
