// The ordered, reference-counted list of component objects behind IStreamInfos, ISubPicStreamInfos
// and IProgramInfos.
//
//   zel::Ref<IStreamInfos> streams;
//   program->GetAudioStreamInfos(streams.Receive());
//   for (int i = 0; i < streams->GetCount(); ++i) {
//     zel::Ref<IStreamInfo> stream;
//     streams->GetItem(i, stream.Receive());
//   }
//
// Threads: a list does not lock. Add and Clear must not overlap with any other use of it;
// references may be taken and given back on any thread.
#pragma once

#include <vector>

#include "zel/base/Unknown.h"

namespace scombase {

/// Holds objects of class `C`, one reference each, and hands them out through their interface `I`.
/// `IList` is the list's own interface; it adds `int GetCount()` and `HRESULT GetItem(int, I**)` to
/// IUnknown. The library instantiates it for streams, subpicture streams and programs; the
/// definitions for other classes are in zel/base/UnknownList-inl.h.
///
/// A new list is not aggregated and has a count of 0: whoever makes it takes the first reference.
template <class C, class I, class IList>
class ZEL_API CUnknownList : public CUnknown, public IList {
 public:
  CUnknownList();

  /// Answers the id of `IList`, and IID_IUnknown; never that of `I`.
  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CUnknownList() override;

  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  /// Number of items.
  int GetCount() override;
  /// Hands out the item at 0-based `index` in `*out`, with one reference.
  /// @return S_OK; E_POINTER for a null `out`, or, with `*out` null, for an index out of range.
  HRESULT GetItem(int index, I** out) override;

  /// Appends `item` and takes a reference on it.
  /// @return its position; -1, with nothing added, for null.
  /// @throws std::bad_alloc with nothing changed.
  int Add(C* item);
  /// Releases all items, the last one first; then the list is empty. An item that is destroyed here
  /// must not use the list. @return S_OK.
  HRESULT Clear();

 private:
  friend struct zel::Layout<CUnknownList>;

  std::vector<C*> m_items;
};

}  // namespace scombase
