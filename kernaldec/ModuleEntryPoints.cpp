// The module's two exports: the class factory of the decoder manager, and whether it may go.

#include <new>

#include "kernaldec/Guard.h"
#include "kernaldec/MediaDecoderMgr.h"
#include "media/Ffmpeg.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"

namespace zel::kernaldec {
namespace {

/// FFmpeg writes to the standard error output unless it is told otherwise, and has one setting for
/// the whole process. A host that has made a choice of its own keeps it.
void QuietFfmpeg() {
  static const bool done = [] {
    if (av_log_get_level() == AV_LOG_INFO) av_log_set_level(AV_LOG_QUIET);
    return true;
  }();
  static_cast<void>(done);
}

/// The one factory: it holds nothing, so it is never destroyed and its references are not counted.
class ManagerFactory final : public IClassFactory {
 public:
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (!ZelIsEqualGUID(riid, IID_IUnknown) && !ZelIsEqualGUID(riid, IID_IClassFactory)) {
      return E_NOINTERFACE;
    }
    *ppv = static_cast<IClassFactory*>(this);
    return S_OK;
  }
  ULONG AddRef() override { return 2; }
  ULONG Release() override { return 1; }

  HRESULT CreateInstance(IUnknown* pUnkOuter, const _GUID& riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    // An aggregating object needs the inner object's own face to hold it by.
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
  static zel::kernaldec::ManagerFactory factory;
  return factory.QueryInterface(riid, ppv);
}

/// S_FALSE: objects of the module may live anywhere in the process.
HRESULT DllCanUnloadNow() {
  return S_FALSE;
}

}  // extern "C"
