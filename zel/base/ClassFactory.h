// The class factory: how DllGetClassObject turns a class id into objects.
//
//   zel::Ref<IClassFactory> factory;
//   DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
//   zel::Ref<IAudioCompositor> compositor;
//   factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
//
// Threads: any thread may call anything here at any time.
#pragma once

#include <new>

#include "zel/base/Unknown.h"
#include "zel/platform/COMSupport.h"

/// One creatable class.
struct CFactoryTemplate {
  /// Display name. The library does not read it.
  const wchar_t* name;
  const _GUID* classId;
  /// Makes an object with one reference and a result (`*phr`) that is not negative, or returns null
  /// with a negative one. `pUnkOuter` is the aggregating object or null.
  scombase::CUnknown* (*create)(IUnknown* pUnkOuter, long* phr);
};

/// The table of creatable classes, and the number of its rows.
extern "C" ZEL_API const CFactoryTemplate g_Templates[];
extern "C" ZEL_API const int g_cTemplates;

/// The factory of one row of g_Templates. It owns nothing but itself.
class ZEL_API CFactory final : public IClassFactory {
 public:
  /// Hands out a factory for class `rclsid` in `*ppv`, with one reference. After a failure `*ppv`
  /// is as it was.
  /// @return S_OK; E_NOINTERFACE unless `riid` is IID_IUnknown or IID_IClassFactory;
  ///   CLASS_E_CLASSNOTAVAILABLE; E_POINTER for a null `ppv`; E_OUTOFMEMORY.
  static HRESULT GetClassObject(const _GUID& rclsid, const _GUID& riid, void** ppv);
  /// Does nothing. @return S_OK.
  static HRESULT RegisterAll();
  /// Does nothing. @return S_OK.
  static HRESULT UnregisterAll();
  /// @return S_OK: the library may be unloaded once its objects are released.
  static HRESULT CanUnloadNow();

  /// @param row a row of the table, which must outlive the factory. The count starts at 1.
  explicit CFactory(const CFactoryTemplate* row);
  CFactory(const CFactory&) = delete;
  CFactory& operator=(const CFactory&) = delete;

  /// Answers IID_IUnknown and IID_IClassFactory.
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  /// Makes an object of the row's class; see IClassFactory. After CLASS_E_NOAGGREGATION `*ppv` is
  /// as it was. An object that does not expose `riid` is destroyed again.
  HRESULT CreateInstance(IUnknown* pUnkOuter, const _GUID& riid, void** ppv) override;
  /// Adds 1 to s_cServerLocks, or subtracts 1 when `fLock` is 0. @return S_OK.
  HRESULT LockServer(BOOL fLock) override;

  /// Locks taken less locks given back, for the whole process. The library does not read it.
  static long s_cServerLocks;

 private:
  friend struct zel::Layout<CFactory>;

  ~CFactory() = default;

  long m_cRef = 1;
  const CFactoryTemplate* m_pRow;
};

#if defined(__i386__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(sizeof(CFactoryTemplate) == 12);
static_assert(offsetof(CFactoryTemplate, classId) == 4 && offsetof(CFactoryTemplate, create) == 8);
template <>
struct zel::Layout<CFactory> {
  static_assert(sizeof(CFactory) == 12);
  static_assert(offsetof(CFactory, m_cRef) == 4 && offsetof(CFactory, m_pRow) == 8);
};
#pragma GCC diagnostic pop
#endif

/// Creation function of class `T` for a row of g_Templates.
template <class T>
scombase::CUnknown* CreateInstance(IUnknown* pUnkOuter, long* phr) {
  *phr = S_OK;
  auto* object = new (std::nothrow) T(pUnkOuter, phr);
  if (object == nullptr) {
    *phr = E_OUTOFMEMORY;
    return nullptr;
  }
  object->NonDelegatingAddRef();
  return object;
}
