// Definitions of scombase::CUnknownList, for the source files that instantiate it over classes of
// their own:
//
//   template class scombase::CUnknownList<CClip, IClip, IClips>;
#pragma once

#include "zel/base/Ids.h"
#include "zel/base/UnknownList.h"

namespace scombase {

template <class C, class I, class IList>
CUnknownList<C, I, IList>::CUnknownList() : CUnknown(nullptr) {}

template <class C, class I, class IList>
CUnknownList<C, I, IList>::~CUnknownList() {
  Clear();
}

template <class C, class I, class IList>
HRESULT CUnknownList<C, I, IList>::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<IList>::get_guid())) {
    return scombase::GetInterface(static_cast<IList*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

template <class C, class I, class IList>
HRESULT CUnknownList<C, I, IList>::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}

template <class C, class I, class IList>
ULONG CUnknownList<C, I, IList>::AddRef() {
  return GetOwner()->AddRef();
}

template <class C, class I, class IList>
ULONG CUnknownList<C, I, IList>::Release() {
  return GetOwner()->Release();
}

template <class C, class I, class IList>
int CUnknownList<C, I, IList>::GetCount() {
  return static_cast<int>(m_items.size());
}

template <class C, class I, class IList>
HRESULT CUnknownList<C, I, IList>::GetItem(int index, I** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (index < 0 || index >= GetCount()) return E_POINTER;
  *out = static_cast<I*>(m_items[static_cast<std::size_t>(index)]);
  (*out)->AddRef();
  return S_OK;
}

template <class C, class I, class IList>
int CUnknownList<C, I, IList>::Add(C* item) {
  if (item == nullptr) return -1;
  m_items.push_back(item);
  item->AddRef();
  return GetCount() - 1;
}

template <class C, class I, class IList>
HRESULT CUnknownList<C, I, IList>::Clear() {
  for (auto item = m_items.rbegin(); item != m_items.rend(); ++item) (*item)->Release();
  m_items.clear();
  return S_OK;
}

}  // namespace scombase
