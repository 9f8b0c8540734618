// What the library requires of a host's pool of samples.
//
//   sample->SetFrameBuffer(pool);       // holds a reference on the pool
//   sample->ReturnSampleBack2Buffer();  // ends in pool->ReturnSample(sample)
#pragma once

#include "zel/base/Unknown.h"
#include "zel/platform/COMSupport.h"

class CZelSample;

/// A pool of samples. The host derives its own from this class. It is reference counted like every
/// component: its table begins with the non-delegating operations, the destructor and the three of
/// IUnknown. The library calls AddRef and Release on any thread.
class ZEL_API CFrameBuffer : public scombase::INonDelegatingUnknown {
 public:
  virtual HRESULT QueryInterface(const _GUID& riid, void** ppv) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

  // The pool's own operations. The library calls none of them.
  virtual HRESULT Reserved0() = 0;
  virtual HRESULT Reserved1() = 0;
  virtual HRESULT Reserved2() = 0;
  virtual HRESULT Reserved3() = 0;
  virtual HRESULT Reserved4() = 0;
  virtual HRESULT Reserved5() = 0;
  virtual HRESULT Reserved6() = 0;

  /// Takes a sample, with its frame, back into the pool. Called on the thread that returns the
  /// sample, which does not use the sample any more.
  virtual HRESULT ReturnSample(CZelSample* sample) = 0;
};
#if defined(__i386__)
static_assert(sizeof(CFrameBuffer) == 4);
#endif
