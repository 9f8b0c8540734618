// Creation of components that live in modules of their own, loaded when they are first asked for.

#include <dlfcn.h>

#include <mutex>
#include <new>
#include <string>

#include "zel/base/Ref.h"
#include "zel/platform/COMSupport.h"

namespace {

using GetClassObject = HRESULT (*)(const _GUID&, const _GUID&, void**);

// Its address tells the folder of this library.
const char anchor = 0;

/// Loads the module in this library's folder and returns its class entry, or null. The module stays
/// loaded: its objects may outlive every caller here.
GetClassObject LoadModule(const char* fileName) {
  Dl_info self{};
  if (dladdr(&anchor, &self) == 0 || self.dli_fname == nullptr) return nullptr;
  std::string path = self.dli_fname;
  // Without a slash the loader would search its own folders instead of the current one.
  const std::size_t slash = path.rfind('/');
  path = (slash == std::string::npos ? std::string("./") : path.substr(0, slash + 1)) + fileName;
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return nullptr;
  return reinterpret_cast<GetClassObject>(dlsym(module, "DllGetClassObject"));
}

/// The entry of the decoder module, or null. Loads the module once; while it cannot be loaded,
/// every call tries again.
GetClassObject DecoderModule() {
  static std::mutex mutex;
  static GetClassObject entry = nullptr;
  const std::lock_guard lock(mutex);
  if (entry == nullptr) entry = LoadModule(ZEL_DECODER_MODULE);
  return entry;
}

HRESULT Create(const _GUID& clsid, IUnknown* outer, const _GUID& iid, void** out) {
  const GetClassObject getClassObject = DecoderModule();
  if (getClassObject == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
  zel::Ref<IClassFactory> factory;
  const HRESULT result = getClassObject(clsid, IID_IClassFactory, factory.ReceiveVoid());
  if (!ZelSucceeded(result)) return result;
  return factory ? factory->CreateInstance(outer, iid, out) : E_FAIL;
}

}  // namespace

extern "C" HRESULT ZelCreateInstance(const _GUID& clsid, IUnknown* outer, unsigned long /*context*/,
                                     const _GUID& iid, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  HRESULT result = E_FAIL;
  try {
    result = Create(clsid, outer, iid, out);
  } catch (const std::bad_alloc&) {
    result = E_OUTOFMEMORY;
  } catch (...) {
    result = E_FAIL;
  }
  if (!ZelSucceeded(result)) *out = nullptr;
  return result;
}
