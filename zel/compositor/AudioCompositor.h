// The compositor: replaces the sound of an audio stream, frame by frame, with a second track.
//
//   zel::Ref<IClassFactory> factory;
//   DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
//   zel::Ref<IAudioCompositor> compositor;
//   factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
//
//   compositor->SetInputAudioStream(input);  // its frames, sizes and time stamps are kept
//   compositor->AddByMediaStream(track);     // its sound is heard
//   compositor->SetDelayTime(1.5);           // from 1.5 s on
//   zel::Ref<IMediaStream> output;
//   compositor->GetOutPutAudioStream(output.Receive());
//   for (;;) {
//     output->Forward();
//     CZelSample* sample = output->GetSampleEx();
//     if (sample == nullptr) break;  // the input has ended
//     Play(sample->GetMediaFrame());
//   }
#pragma once

#include "zel/base/Interfaces.h"
#include "zel/compositor/MediaStream.h"
#include "zel/platform/COMSupport.h"

/// Replaces the sound of an input stream with a second source that starts `GetDelayTime()` seconds
/// later.
///
/// Each frame of the output is the input's own frame, with its size, format and time stamps. Its
/// bytes are the second source's sound, converted to the input's rate and channel count. They are
/// silence before the delay and after the end of the source. Without a second source frames pass
/// unchanged. Before the source is asked for a block, the frame's bytes are cleared.
///
/// Threads: one thread pulls the output. One other thread may meanwhile make the calls marked "any
/// time"; AddByFileName may come from any thread. Calls marked "no pull" come while no other call
/// to the compositor or its output is under way.
///
/// Calls from inside a stream: a stream that the compositor calls may call AddByFileName,
/// SetDelayTime and GetDelayTime. In every such call SetInputAudioStream does nothing and returns
/// E_ZEL_STATE, and an assertion fails when the last reference is released. While the compositor
/// pulls or seeks (the stream's GetSampleEx and Seek, and a source's Forward), AddByMediaStream and
/// Remove return E_ZEL_STATE, the output's GetSampleEx null and its Seek -1.0, and do nothing.
class ZEL_API IAudioCompositor : public IUnknown {
 public:
  /// Drops everything held so far, then holds `pInput` with one reference and reads its
  /// description. Waits for a load that is under way. Threads: no pull.
  /// @return S_OK; S_FALSE when `pInput` is null or gives no description (no audio can be pulled
  ///   then); E_OUTOFMEMORY. With nothing changed: E_INVALIDARG for the compositor's own output;
  ///   E_ZEL_STATE inside a stream's call or on the loading thread.
  virtual HRESULT SetInputAudioStream(IMediaStream* pInput) = 0;
  /// Hands out the output stream with one reference. Threads: any time.
  /// @return S_OK; E_POINTER.
  virtual HRESULT GetOutPutAudioStream(IMediaStream** ppOutput) = 0;
  /// Makes `pSource`, held with one reference, the second source in place of the one before. It
  /// starts at the position of the last frame pulled. Threads: any time; waits for a pull to end.
  /// @return S_OK. With the source before kept: E_INVALIDARG for null, the compositor's own output,
  ///   or a stream without description, audio or channels; E_ZEL_STATE inside a pull or seek.
  virtual HRESULT AddByMediaStream(IMediaStream* pSource) = 0;
  /// Checks that `fileName` (zero-terminated, UTF-32) can be opened, and loads it on a thread of
  /// the compositor's own. Returns before the file is loaded; the source is added when it is.
  /// ICompositorDiagnosis waits for that, and says how it went.
  ///
  /// The name accepted last is not loaded again until Remove, even if its load failed. When no
  /// thread can be made, the name is accepted, S_OK is returned, and nothing is loaded: call Remove
  /// to try again.
  ///
  /// Threads: any thread, any time, also inside a stream's call. Waits for an earlier load, but not
  /// for a pull: if the earlier load waits for a pull to end, this one follows it. If several names
  /// arrive meanwhile, only the last is loaded.
  /// @return S_OK; E_INVALIDARG when the file does not open; E_FAIL without a decoder manager;
  ///   E_POINTER; E_OUTOFMEMORY.
  virtual HRESULT AddByFileName(wchar_t* fileName) = 0;
  /// Drops the second source. A load that is under way still adds its stream. Threads: any time;
  /// waits for a pull to end.
  /// @return S_OK; E_ZEL_STATE inside a pull or seek.
  virtual HRESULT Remove() = 0;
  /// Sets how many seconds after the input's time 0 the second source starts. A negative delay
  /// starts inside the source. The next frame at or after the delay repositions the source.
  /// Threads: any time; takes no lock.
  /// @return S_OK.
  virtual HRESULT SetDelayTime(double seconds) = 0;
  /// The delay in seconds. Threads: any time; takes no lock.
  virtual double GetDelayTime() = 0;

 protected:
  ~IAudioCompositor() = default;
};
