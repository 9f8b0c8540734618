// A base class for components of your own. Name the interfaces; counting, aggregation and lookup
// come with it.
//
//   class Silence final : public zel::Component<IMediaStream> {
//    public:
//     HRESULT GetStreamInfo(IStreamInfo** info) override;
//     CZelSample* GetSampleEx() override;
//     int Forward() override;
//   };
//   zel::Ref<Silence> silence = zel::MakeComponent<Silence>();
//   compositor->AddByMediaStream(silence.get());
//
// The exported classes of the library do not use it: their layouts and tables are part of the
// binary interface.
//
// Threads: any thread may take and give back references and ask for interfaces.
#pragma once

#include <utility>

#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/base/Unknown.h"
#include "zel/platform/DecoderManager.h"

namespace zel {

/// Tells whether an id is that of interface `I`. Specialise it for an interface that is not one of
/// the library's own.
template <class I>
struct InterfaceId {
  static bool Equals(const _GUID& id) { return ZelIsEqualGUID(id, uuidof_class<I>::get_guid()); }
};
template <>
struct InterfaceId<IMediaDecoderMgr> {
  static bool Equals(const _GUID& id) { return ZelIsEqualGUID(id, IID_IMediaDecoderMgr); }
};
template <>
struct InterfaceId<IClassFactory> {
  static bool Equals(const _GUID& id) { return ZelIsEqualGUID(id, IID_IClassFactory); }
};
/// A decoder has no id: the manager hands out this face.
template <>
struct InterfaceId<IMediaDecoder> {
  static bool Equals(const _GUID&) { return false; }
};

/// What a component derives from to expose interface `I`. An interface with operations that most
/// components do not have specialises it with defaults for them.
template <class I>
class Implements : public I {};

/// A component that exposes `Interfaces`. It counts references, supports aggregation, and looks
/// interfaces up in the order listed. Derive from it and implement their operations.
template <class... Interfaces>
class Component : public scombase::CUnknown, public Implements<Interfaces>... {
 public:
  /// @param outer the aggregating object (not referenced), or null for an object of its own.
  explicit Component(IUnknown* outer = nullptr) : CUnknown(outer) {}

  /// @return S_OK with one reference in `*ppv`; E_POINTER for a null `ppv`; else E_NOINTERFACE with
  ///   `*ppv` null.
  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if ((HandOut<Interfaces>(riid, ppv) || ...)) return S_OK;
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  HRESULT QueryInterface(const _GUID& riid, void** ppv) final {
    return GetOwner()->QueryInterface(riid, ppv);
  }
  ULONG AddRef() final { return GetOwner()->AddRef(); }
  ULONG Release() final { return GetOwner()->Release(); }

 private:
  template <class I>
  bool HandOut(const _GUID& riid, void** ppv) {
    return InterfaceId<I>::Equals(riid) &&
           scombase::GetInterface(static_cast<I*>(this), ppv) == S_OK;
  }
};

/// Makes a `T`, a component that is not aggregated, and takes the first reference on it.
/// @throws std::bad_alloc, and what the constructor throws
template <class T, class... Arguments>
Ref<T> MakeComponent(Arguments&&... arguments) {
  return Ref<T>::Share(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace zel
