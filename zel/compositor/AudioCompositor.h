// The compositor's own interface. Objects are made through the class factory of
// CLSID_CAudioCompositor.
#pragma once

#include "zel/base/Interfaces.h"
#include "zel/compositor/MediaStream.h"
#include "zel/platform/COMSupport.h"

/// Replaces the sound of an input stream with a second source that starts `GetDelayTime()` seconds
/// later.
///
/// The result is pulled from the stream that GetOutPutAudioStream hands out: the frames are the
/// input's, with their sizes, formats and time stamps; their bytes are the second source's audio,
/// converted to the input's rate and channel count, or silence before the delay and after the
/// source's end. Without a second source frames pass unchanged.
///
/// Threads: one thread pulls. AddByMediaStream, AddByFileName, Remove, SetDelayTime and
/// GetDelayTime may be called on one other thread meanwhile, and so may the output stream's Seek if
/// the input bears its Forward during its Seek. SetInputAudioStream and the last Release may not.
class ZEL_API IAudioCompositor : public IUnknown {
 public:
  /// Drops everything held so far, then holds `pInput` (one reference) and describes it.
  /// @return S_OK; S_FALSE when `pInput` is null or gives no description (then no audio can be
  ///   pulled); E_OUTOFMEMORY.
  virtual HRESULT SetInputAudioStream(IMediaStream* pInput) = 0;
  /// Hands out the output stream with one reference.
  /// @return S_OK; E_POINTER.
  virtual HRESULT GetOutPutAudioStream(IMediaStream** ppOutput) = 0;
  /// Makes `pSource` (held with one reference) the second source, in place of the one before.
  /// @return S_OK; E_INVALIDARG for null, or a stream without description, audio or channels: the
  ///   source before it stays.
  virtual HRESULT AddByMediaStream(IMediaStream* pSource) = 0;
  /// Checks that `fileName` (zero-terminated, UTF-32) can be opened and starts to load it on a
  /// thread of the compositor's own; the source takes effect when that has finished. The name
  /// accepted last is not loaded again until Remove, whatever became of that load.
  /// @return S_OK; E_INVALIDARG when the file does not open; E_FAIL without a decoder manager;
  ///   E_POINTER; E_OUTOFMEMORY.
  virtual HRESULT AddByFileName(wchar_t* fileName) = 0;
  /// Drops the second source. A load that is under way still adds its stream.
  /// @return S_OK.
  virtual HRESULT Remove() = 0;
  /// Sets how many seconds after the input's time 0 the second source starts; negative values start
  /// inside it. The next frame at or after the delay repositions the source.
  /// @return S_OK.
  virtual HRESULT SetDelayTime(double seconds) = 0;
  /// The delay in seconds.
  virtual double GetDelayTime() = 0;

 protected:
  ~IAudioCompositor() = default;
};
