// The base of every component: reference count, aggregation and interface lookup.
//
// The library's classes derive first from scombase::CUnknown and then from each interface that they
// expose. Their interface faces forward QueryInterface, AddRef and Release to the outer unknown
// (GetOwner()). That is the aggregating object, or the object's own non-delegating face. A new
// object has a count of 0; its creator takes the first reference.
//
//   auto* info = new CStreamInfo;
//   info->AddRef();  // zel::MakeComponent<CStreamInfo>() does both
//   if (scombase::IsEqualObject(info, other)) ...
//
// A class of a host's own derives from zel::Component (zel/base/Component.h), which has all this.
//
// Threads: any thread may take and give back references and ask for interfaces.
#pragma once

#include "zel/platform/COMSupport.h"

namespace scombase {

/// The three operations of IUnknown that act on the object itself rather than on its outer unknown.
/// They occupy the same table slots as IUnknown's, so a pointer to this face can be stored and
/// called as an `IUnknown*`.
class ZEL_API INonDelegatingUnknown {
 public:
  virtual HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) = 0;
  virtual ULONG NonDelegatingAddRef() = 0;
  virtual ULONG NonDelegatingRelease() = 0;
  virtual ~INonDelegatingUnknown();
};

/// Holds the outer unknown and the reference count of a component.
class ZEL_API CUnknown : public INonDelegatingUnknown {
 public:
  // Both constructors are out of line. They store the non-delegating face as an IUnknown*; an
  // optimiser that sees this may drop later virtual calls through it.
  /// @param pUnkOuter the aggregating object (not referenced), or null for an object of its own.
  explicit CUnknown(IUnknown* pUnkOuter);
  /// @param phr result slot of the creation; left as it is.
  CUnknown(IUnknown* pUnkOuter, long* phr);
  CUnknown(const CUnknown&) = delete;
  CUnknown& operator=(const CUnknown&) = delete;

  /// Answers IID_IUnknown with the non-delegating face, and one reference.
  /// @return S_OK; E_POINTER for a null `ppv`; else E_NOINTERFACE with `*ppv` null.
  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  /// @return the count, at least 1; only informative.
  ULONG NonDelegatingAddRef() override;
  /// Destroys the object when the count reaches 0.
  /// @return 0 then, else the count, at least 1.
  ULONG NonDelegatingRelease() override;
  ~CUnknown() override;

  /// The controlling object, to which interface faces forward.
  IUnknown* GetOwner() const;
  /// A momentary reading of the count.
  long GetRefCount() const;

 private:
  friend struct zel::Layout<CUnknown>;

  IUnknown* m_pUnkOuter;
  long m_cRef;
};

/// Hands out `pUnk`: stores it in `*ppv` and takes a reference through it.
/// @return S_OK; E_POINTER for a null `ppv`.
ZEL_API HRESULT GetInterface(IUnknown* pUnk, void** ppv);

/// Tells whether two interface pointers belong to the same object: 1 or 0. Neither object's count
/// changes. 0 also when either of them cannot give its IUnknown.
ZEL_API BOOL IsEqualObject(IUnknown* pFirst, IUnknown* pSecond);

}  // namespace scombase

#if defined(__i386__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
template <>
struct zel::Layout<scombase::CUnknown> {
  using T = scombase::CUnknown;
  static_assert(sizeof(T) == 12);
  static_assert(offsetof(T, m_pUnkOuter) == 4 && offsetof(T, m_cRef) == 8);
};
#pragma GCC diagnostic pop
static_assert(sizeof(scombase::INonDelegatingUnknown) == 4);
#endif
