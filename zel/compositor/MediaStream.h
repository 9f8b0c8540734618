// The stream of media samples that a consumer pulls: what the compositor takes, and what it gives.
//
//   void PlayAll(IMediaStream& stream) {
//     for (;;) {
//       stream.Forward();
//       CZelSample* sample = stream.GetSampleEx();
//       if (sample == nullptr) return;
//       Play(sample->GetMediaFrame());  // good until the next call into the stream
//     }
//   }
//
// A stream of one's own derives from zel::Component<IMediaStream>; see zel/base/Component.h.
#pragma once

#include "zel/base/Component.h"
#include "zel/base/Interfaces.h"
#include "zel/platform/COMSupport.h"

class CZelSample;

/// A stream of samples. Its consumer calls `Forward()` to advance and `GetSampleEx()` to read the
/// current sample, until that is null.
///
/// Threads: one thread at a time calls a stream. AddRef, Release and QueryInterface may come from
/// any thread. The compositor calls its streams from the threads that call the compositor, and from
/// its loading thread.
class ZEL_API IMediaStream : public IUnknown {
 public:
  /// Hands out a description of the stream in `*ppInfo`, with one reference.
  /// @return S_OK; any other code when there is none.
  virtual HRESULT GetStreamInfo(IStreamInfo** ppInfo) = 0;
  /// Selects by 0-based index among what the stream offers.
  /// @return S_OK; any other code when nothing was selected.
  virtual HRESULT ChangeStream(int index) = 0;
  /// The current sample, or null when there is none (end of the stream, or failure). The stream
  /// keeps ownership; sample and frame are good until the next call into the stream.
  virtual CZelSample* GetSampleEx() = 0;
  /// Advances by one sample. Negative: not possible.
  virtual int Forward() = 0;
  /// Steps back by one sample, where a stream can.
  virtual int Backward() = 0;
  /// Positions the stream at `seconds`. GetSampleEx then gives the first sample of that position,
  /// whether it is called at once or after one Forward: the first Forward after a Seek skips
  /// nothing.
  /// @param mode defined by the streams. The compositor passes 1 when it positions its second
  ///   source.
  /// @return the position reached, in seconds; negative when there is none.
  virtual double Seek(double seconds, int mode) = 0;
  /// A message along the chain of streams; its meaning belongs to the streams.
  /// @return what the stream defines that takes the message; S_FALSE when none does.
  virtual HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) = 0;
  /// The chain's first sample before any change, as the stream defines it.
  virtual CZelSample* GetOriginSampleEx() = 0;

 protected:
  ~IMediaStream() = default;
};

/// Defaults for a stream that is read forward only: all but GetStreamInfo, GetSampleEx and Forward.
template <>
class zel::Implements<IMediaStream> : public IMediaStream {
 public:
  HRESULT ChangeStream(int) override { return E_ZEL_NOTIMPL; }
  int Backward() override { return -1; }
  double Seek(double, int) override { return -1.0; }
  HRESULT NotifyStreamMessage(unsigned long, long long, void*, void*) override { return S_FALSE; }
  CZelSample* GetOriginSampleEx() override { return GetSampleEx(); }
};
