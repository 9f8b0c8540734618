// Stands beside the loader test as the application's component support library, and has its
// components made by the test program.
#include "zel/platform/COMSupport.h"

extern "C" {

[[gnu::weak]] decltype(ZelCreateInstance) CreateScripted;  // Found when the program loads this.

HRESULT ZelCreateInstance(const _GUID& clsid, IUnknown* outer, unsigned long context,
                          const _GUID& iid, void** out) {
  return CreateScripted(clsid, outer, context, iid, out);
}

}  // extern "C"
