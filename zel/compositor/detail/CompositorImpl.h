// The compositor: the one creatable class of the library.
//
// The pull path lives in Delivery.cpp, the loading of a file in Loader.cpp, what the compositor
// says of itself in DiagnosisFace.cpp, everything else in Compositor.cpp.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "zel/audio/AudioConverter.h"
#include "zel/base/Ref.h"
#include "zel/base/Unknown.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/Diagnosis.h"
#include "zel/compositor/MediaStream.h"
#include "zel/compositor/detail/BaseThread.h"
#include "zel/compositor/detail/DeliveryBuffer.h"
#include "zel/compositor/detail/DiagnosisFace.h"
#include "zel/mediainfo/StreamRecords.h"
#include "zel/sample/Sample.h"

/// See IAudioCompositor.
///
/// Threads: m_mutex guards the second source, the converter and the sound that waits for delivery;
/// streams are called with it held. m_fileGuard guards the file name and the hand-over of names to
/// the loader; nothing foreign is called with it held. A thread that needs both takes m_mutex
/// first. Delay, reposition request and position are atomic, because they are set without a lock.
/// Input, output description and output sample belong to the thread that pulls; they change only
/// while nobody pulls.
class CAudioCompositor : public scombase::CUnknown,
                         public IAudioCompositor,
                         public IMediaStream,
                         public BaseThread {
 public:
  CAudioCompositor(IUnknown* pUnkOuter, long* phr);

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CAudioCompositor() override;

  // In the order of the class's table.
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  HRESULT AddByMediaStream(IMediaStream* pSource) override;
  HRESULT AddByFileName(wchar_t* fileName) override;
  HRESULT Remove() override;
  HRESULT SetDelayTime(double seconds) override;
  double GetDelayTime() override;
  HRESULT SetInputAudioStream(IMediaStream* pInput) override;
  HRESULT GetOutPutAudioStream(IMediaStream** ppOutput) override;
  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  HRESULT ChangeStream(int index) override;
  double Seek(double seconds, int mode) override;
  /// The input's current frame with its sound replaced, or null at the end. The frame stays the
  /// input's.
  virtual MEDIA_FRAME* GetSample();
  int Forward() override;
  int Backward() override;
  CZelSample* GetSampleEx() override;
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override;
  CZelSample* GetOriginSampleEx() override;
  /// Loads the name handed over and adds it as the second source, until no name is left.
  int svc() override;

 private:
  friend class zel::DiagnosisFace;  // Asks IsInsideCall.

  using BstrPtr = std::unique_ptr<wchar_t, decltype(&SysFreeString)>;
  using ThreadId = std::atomic<std::thread::id>;

  /// Holds m_mutex, unless the calling thread holds it already: then a stream that this compositor
  /// is calling has called back, and the call must be refused.
  class CallLock {
   public:
    explicit CallLock(CAudioCompositor& compositor);
    CallLock(const CallLock&) = delete;
    CallLock& operator=(const CallLock&) = delete;
    ~CallLock();
    /// False when the call must be refused.
    explicit operator bool() const { return isLocked_; }

   private:
    CAudioCompositor& compositor_;
    bool isLocked_;
  };

  /// Notes in `caller` that the calling thread is inside a call to a stream, made without m_mutex.
  class StreamCall {
   public:
    explicit StreamCall(ThreadId& caller);
    StreamCall(const StreamCall&) = delete;
    StreamCall& operator=(const StreamCall&) = delete;
    ~StreamCall();

   private:
    ThreadId& caller_;
    bool isOutermost_;
  };

  /// What became of a load.
  struct LoadReport {
    LOAD_RESULT result = LOAD_ADDED;
    HRESULT code = S_OK;
  };

  bool HoldsLock() const;
  bool IsInsideCall() const;
  void Reset();
  void DropSource();
  void SeekNewSource(IMediaStream& source, std::int64_t position) const;

  PULL_RESULT PullFrame(MEDIA_FRAME*& frame);
  PULL_RESULT ReplaceSound(MEDIA_FRAME& frame);
  PULL_RESULT ReadSource(MEDIA_FRAME& frame, double frameTime);
  void AdvanceSource(double frameTime);
  PULL_RESULT Convert(const MEDIA_FRAME& block);
  CAudioConverter& ConverterFor(int channels, int sampleRate);
  std::size_t Buffered() const;
  void ClearBuffered();
  void Take(unsigned char* out, std::size_t count);
  void Drain();

  bool IsCurrentFile(const wchar_t* fileName);
  bool StartLoader();
  void WaitForLoader();
  BstrPtr NextFile();
  LoadReport Load(BstrPtr name);
  void EndLoad(const LoadReport& report);

  std::unique_ptr<CZelSample> m_pOutSample;  // Never handed out with a reference.
  zel::Ref<IMediaStream> m_pSource;
  zel::Ref<IMediaStream> m_pInput;
  std::unique_ptr<StreamInfo> m_pOutInfo;
  std::unique_ptr<CAudioConverter> m_pConverter;
  pthread_mutex_t m_mutex;
  std::atomic<bool> m_bReposition = false;
  std::wstring m_fileName;  // Last accepted by AddByFileName.
  // Converted sound waits in the converter's queue. It moves here, in front of that queue, when the
  // converter is replaced or when a frame has an odd number of bytes.
  zel::DeliveryBuffer m_setAside;
  // Time of the last frame delivered, or the target of a seek made while a file loads, in 100-ns
  // units; -1: none.
  std::atomic<std::int64_t> m_llPosition = -1;
  std::atomic<double> m_dDelay = 0.0;

  // State that lets streams call back and any thread add a file.
  ThreadId m_lockHolder;                        // The thread that holds m_mutex.
  ThreadId m_inputCaller;                       // The thread inside a call to the input.
  ThreadId m_sourceCaller;                      // The thread inside a call to a new source.
  ThreadId m_loader;                            // The thread that runs svc.
  std::mutex m_startGuard;                      // One thread at a time starts the loader.
  std::mutex m_fileGuard;                       // Guards m_fileName and the next two.
  BstrPtr m_pNextFile{nullptr, SysFreeString};  // The next name for the loader.
  bool m_bLoading = false;                      // The loader will look at m_pNextFile again.
  std::atomic<bool> m_bLoaderWaits = false;     // The loader waits for m_mutex.

  PULL_RESULT m_eConverted = PULL_SOUND;  // What the converter makes: sound, or silence.
  zel::DiagnosisFace m_diagnosis{*this};
};
