#include "zel/base/EntryPoints.h"

#include "zel/base/ClassFactory.h"

extern "C" {

HRESULT DllGetClassObject(const _GUID& rclsid, const _GUID& riid, void** ppv) {
  return CFactory::GetClassObject(rclsid, riid, ppv);
}

HRESULT DllCanUnloadNow() {
  return CFactory::CanUnloadNow();
}
HRESULT DllRegisterServer() {
  return CFactory::RegisterAll();
}
HRESULT DllUnregisterServer() {
  return CFactory::UnregisterAll();
}

}  // extern "C"
