// The compositor: the one creatable class of the library.
//
// The pull path lives in Delivery.cpp, the loading of a file in Loader.cpp, everything else in
// Compositor.cpp.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "zel/audio/AudioConverter.h"
#include "zel/base/Unknown.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/MediaStream.h"
#include "zel/compositor/detail/BaseThread.h"
#include "zel/compositor/detail/DeliveryBuffer.h"
#include "zel/mediainfo/StreamRecords.h"
#include "zel/sample/Sample.h"

/// See IAudioCompositor.
///
/// Threads: m_mutex guards the second source, the converter, the buffer and the file name. Delay,
/// the wish to reposition and the position are atomic, because they are set without it. Input,
/// output description and output sample belong to the thread that pulls; they change only while
/// nobody does. No lock is held while a file loads.
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
  /// Loads m_pLoading and adds it as the second source.
  int svc() override;

 private:
  using BstrPtr = std::unique_ptr<wchar_t, decltype(&SysFreeString)>;

  void Reset();
  void DropSource();
  void ReplaceSound(MEDIA_FRAME& frame, double frameTime);
  bool Refill(const MEDIA_FRAME& sourceFrame);
  CAudioConverter& ConverterFor(int channels, int sampleRate);
  std::size_t Buffered() const;
  void ClearBuffered();
  void Take(unsigned char* out, std::size_t count);
  void Drain();

  CZelSample* m_pOutSample = nullptr;  // Never handed out with a reference.
  IMediaStream* m_pSource = nullptr;
  IMediaStream* m_pInput = nullptr;
  std::unique_ptr<StreamInfo> m_pOutInfo;
  std::unique_ptr<CAudioConverter> m_pConverter;
  pthread_mutex_t m_mutex;
  std::atomic<bool> m_bReposition = false;
  std::wstring m_fileName;  // Last accepted by AddByFileName.
  // What was converted waits in the converter's queue. Only what a replaced converter leaves, or
  // what a frame of an odd size would tear apart, is set aside here; it goes first.
  zel::DeliveryBuffer m_setAside;
  BstrPtr m_pLoading{nullptr, SysFreeString};  // What the next run of the thread loads.
  // Time of the last frame delivered, or a seek target noted while a file loads; -1: none. 100-ns
  // units.
  std::atomic<std::int64_t> m_llPosition = -1;
  std::atomic<double> m_dDelay = 0.0;
};
