#include "zel/base/Unknown.h"

#include <algorithm>

namespace scombase {

INonDelegatingUnknown::~INonDelegatingUnknown() = default;

CUnknown::CUnknown(IUnknown* pUnkOuter) : m_pUnkOuter(pUnkOuter), m_cRef(0) {
  if (m_pUnkOuter == nullptr) {
    m_pUnkOuter = reinterpret_cast<IUnknown*>(static_cast<INonDelegatingUnknown*>(this));
  }
}

CUnknown::CUnknown(IUnknown* pUnkOuter, long* /*phr*/) : CUnknown(pUnkOuter) {}

CUnknown::~CUnknown() = default;

HRESULT CUnknown::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (ZelIsEqualGUID(riid, IID_IUnknown)) {
    *ppv = static_cast<INonDelegatingUnknown*>(this);
    NonDelegatingAddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG CUnknown::NonDelegatingAddRef() {
  InterlockedIncrement(&m_cRef);
  return std::max(static_cast<ULONG>(GetRefCount()), ULONG{1});
}

ULONG CUnknown::NonDelegatingRelease() {
  const long count = InterlockedDecrement(&m_cRef);
  if (count != 0) return std::max(static_cast<ULONG>(count), ULONG{1});
  // A reference that the destructor takes and gives back must not destroy the object a second time.
  ++m_cRef;
  delete this;
  return 0;
}

IUnknown* CUnknown::GetOwner() const {
  return m_pUnkOuter;
}

long CUnknown::GetRefCount() const {
  return __atomic_load_n(&m_cRef, __ATOMIC_SEQ_CST);
}

HRESULT GetInterface(IUnknown* pUnk, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = pUnk;
  pUnk->AddRef();
  return S_OK;
}

BOOL IsEqualObject(IUnknown* pFirst, IUnknown* pSecond) {
  if (pFirst == pSecond) return 1;
  // Only the values of the two root pointers are compared, so their references go back at once.
  const auto identity = [](IUnknown* object) -> void* {
    void* root = nullptr;
    if (object == nullptr || !ZelSucceeded(object->QueryInterface(IID_IUnknown, &root)))
      return nullptr;
    static_cast<IUnknown*>(root)->Release();
    return root;
  };
  void* first = identity(pFirst);
  if (first == nullptr) return 0;
  return first == identity(pSecond) ? 1 : 0;
}

}  // namespace scombase
