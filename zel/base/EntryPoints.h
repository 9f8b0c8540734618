// The four functions that a host looks up after it has loaded the library.
//
//   void* library = dlopen("libZel_AudioCompositor.so", RTLD_NOW);
//   auto* get =
//       reinterpret_cast<decltype(&DllGetClassObject)>(dlsym(library, "DllGetClassObject"));
//   zel::Ref<IClassFactory> factory;
//   get(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
//
// Threads: any thread may call any of them at any time.
#pragma once

#include "zel/platform/COMSupport.h"

extern "C" {

/// Hands out the class factory of class `rclsid` in `*ppv`, with one reference for the caller. A
/// host then calls the factory's CreateInstance and releases the factory.
/// @param rclsid CLSID_CAudioCompositor.
/// @param riid IID_IClassFactory or IID_IUnknown.
/// @return S_OK. With `*ppv` untouched: E_NOINTERFACE for another `riid`; CLASS_E_CLASSNOTAVAILABLE
///   for another class; E_POINTER; E_OUTOFMEMORY.
ZEL_API HRESULT DllGetClassObject(const _GUID& rclsid, const _GUID& riid, void** ppv);

/// @return S_OK: the library may be unloaded once its objects are released.
ZEL_API HRESULT DllCanUnloadNow();

/// Does nothing: there is nothing to register. May be called any number of times. @return S_OK.
ZEL_API HRESULT DllRegisterServer();
/// Does nothing. @return S_OK.
ZEL_API HRESULT DllUnregisterServer();

}  // extern "C"
