// Stands beside the loader test as the application's component support library: creation goes to
// whatever the test has put in g_createInstance.
#include "zel/platform/COMSupport.h"

extern "C" {

ZEL_API decltype(&ZelCreateInstance) g_createInstance = nullptr;

HRESULT ZelCreateInstance(const _GUID& clsid, IUnknown* outer, unsigned long context,
                          const _GUID& iid, void** out) {
  if (g_createInstance == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
  return g_createInstance(clsid, outer, context, iid, out);
}

}  // extern "C"
