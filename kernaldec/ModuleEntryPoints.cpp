// The module's two exports: one hands out the class factory of the decoder manager, the other tells
// whether the module may be unloaded.

#include "kernaldec/Guard.h"
#include "kernaldec/MediaDecoderMgr.h"
#include "media/Ffmpeg.h"
#include "zel/base/Component.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"

namespace zel::kernaldec {
namespace {

/// By default FFmpeg writes to standard error. The setting belongs to the whole process: if the
/// host has changed it, the host's choice stays.
void QuietFfmpeg() {
  static const bool done = [] {
    if (av_log_get_level() == AV_LOG_INFO) av_log_set_level(AV_LOG_QUIET);
    return true;
  }();
  static_cast<void>(done);
}

class ManagerFactory final : public Component<IClassFactory> {
 public:
  HRESULT CreateInstance(IUnknown* pUnkOuter, const _GUID& riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    // An aggregating object must hold the inner object by its non-delegating IUnknown.
    if (pUnkOuter != nullptr && !ZelIsEqualGUID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
    return Guarded([&] {
      QuietFfmpeg();
      auto* manager = new MediaDecoderMgr(pUnkOuter);
      // The manager may be aggregated: count and ask the object itself, not its outer object.
      manager->NonDelegatingAddRef();
      const HRESULT result = manager->NonDelegatingQueryInterface(riid, ppv);
      manager->NonDelegatingRelease();
      return result;
    });
  }
  HRESULT LockServer(BOOL /*fLock*/) override { return S_OK; }
};

}  // namespace
}  // namespace zel::kernaldec

extern "C" {

HRESULT DllGetClassObject(const _GUID& rclsid, const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (!ZelIsEqualGUID(rclsid, CLSID_CMediaDecoderMgr)) return CLASS_E_CLASSNOTAVAILABLE;
  return zel::kernaldec::Guarded([&] {
    return zel::MakeComponent<zel::kernaldec::ManagerFactory>()->QueryInterface(riid, ppv);
  });
}

/// @return S_FALSE, always: objects of the module may still live anywhere in the process
HRESULT DllCanUnloadNow() {
  return S_FALSE;
}

}  // extern "C"
