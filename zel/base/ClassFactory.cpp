#include "zel/base/ClassFactory.h"

#include <algorithm>
#include <exception>

long CFactory::s_cServerLocks = 0;

namespace {

bool IsFactoryInterface(const _GUID& riid) {
  return ZelIsEqualGUID(riid, IID_IUnknown) || ZelIsEqualGUID(riid, IID_IClassFactory);
}

}  // namespace

HRESULT CFactory::GetClassObject(const _GUID& rclsid, const _GUID& riid, void** ppv) {
  if (!IsFactoryInterface(riid)) return E_NOINTERFACE;
  const CFactoryTemplate* end = g_Templates + g_cTemplates;
  const CFactoryTemplate* row =
      std::find_if(g_Templates, end, [&](const CFactoryTemplate& candidate) {
        return ZelIsEqualGUID(*candidate.classId, rclsid);
      });
  if (row == end) return CLASS_E_CLASSNOTAVAILABLE;
  if (ppv == nullptr) return E_POINTER;
  IClassFactory* factory = new (std::nothrow) CFactory(row);
  if (factory == nullptr) return E_OUTOFMEMORY;
  *ppv = factory;
  return S_OK;
}

HRESULT CFactory::RegisterAll() {
  return S_OK;
}
HRESULT CFactory::UnregisterAll() {
  return S_OK;
}
HRESULT CFactory::CanUnloadNow() {
  return S_OK;
}

CFactory::CFactory(const CFactoryTemplate* row) : m_pRow(row) {}

HRESULT CFactory::QueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsFactoryInterface(riid)) return scombase::GetInterface(this, ppv);
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG CFactory::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

ULONG CFactory::Release() {
  const long count = InterlockedDecrement(&m_cRef);
  if (count == 0) delete this;
  // The object may be gone by now, so the count is not read a second time.
  return static_cast<ULONG>(count);
}

HRESULT CFactory::CreateInstance(IUnknown* pUnkOuter, const _GUID& riid, void** ppv) {
  if (pUnkOuter != nullptr && !ZelIsEqualGUID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
  if (ppv == nullptr) return E_POINTER;
  long result = S_OK;
  scombase::CUnknown* object = nullptr;
  try {
    object = m_pRow->create(pUnkOuter, &result);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception&) {
    return E_FAIL;
  }
  if (result < 0) return static_cast<HRESULT>(result);
  const HRESULT found = object->NonDelegatingQueryInterface(riid, ppv);
  // Gives back the creation's own reference: the object lives on with the caller's, or ends here.
  object->NonDelegatingRelease();
  return found;
}

HRESULT CFactory::LockServer(BOOL fLock) {
  if (fLock != 0) {
    InterlockedIncrement(&s_cServerLocks);
  } else {
    InterlockedDecrement(&s_cServerLocks);
  }
  return S_OK;
}
