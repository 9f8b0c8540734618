#include <algorithm>
#include <cwchar>
#include <limits>
#include <new>

#include "zel/base/Ids.h"
#include "zel/compositor/detail/CompositorImpl.h"
#include "zel/mediainfo/StreamInfo.h"

namespace {

// Time stamps and durations count 100-ns units.
constexpr double kUnitsPerSecond = 10'000'000.0;

// What an information object answers by string, cut to the record's array. The object's string is
// freed.
template <std::size_t kSize>
void CopyText(IStreamInfo& info, HRESULT (IStreamInfo::*getter)(wchar_t**), wchar_t (&out)[kSize]) {
  wchar_t* text = nullptr;
  (info.*getter)(&text);
  if (text == nullptr) return;
  std::wcsncpy(out, text, kSize - 1);
  SysFreeString(text);
}

void Describe(IStreamInfo& info, StreamInfo& record) {
  record.type = info.GetType();
  record.id = info.GetID();
  record.fourCC = info.GetFourCC();
  record.state = info.GetState();
  record.length = info.GetLength();
  record.bitRate = info.GetBitRate();
  if (const VideoInfo* video = info.GetVideoInfo()) record.videoInfo = *video;
  if (const AudioInfo* audio = info.GetAudioInfo()) record.audioInfo = *audio;
  record.startPTS = info.GetStartPTS();
  record.ptsOffset = info.GetPTSOffset();
  record.audioInfo.bitsPerSample = 16;  // What is delivered, whatever the input's own width.
  CopyText(info, &IStreamInfo::GetName, record.name);
  CopyText(info, &IStreamInfo::GetDescription, record.description);
}

// Truncates like a conversion, and saturates where a conversion would be undefined.
std::int64_t ToUnits(double seconds) {
  const double units = seconds * kUnitsPerSecond;
  constexpr auto kLimit = 9223372036854775808.0;  // 2 to the 63rd
  if (!(units > -kLimit)) return std::numeric_limits<std::int64_t>::min();
  if (units >= kLimit) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(units);
}

}  // namespace

CAudioCompositor::CAudioCompositor(IUnknown* pUnkOuter, long* phr) : CUnknown(pUnkOuter, phr) {
  pthread_mutex_init(&m_mutex, nullptr);
}

CAudioCompositor::~CAudioCompositor() {
  Reset();
  pthread_mutex_destroy(&m_mutex);
}

HRESULT CAudioCompositor::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<IAudioCompositor>::get_guid())) {
    return scombase::GetInterface(static_cast<IAudioCompositor*>(this), ppv);
  }
  if (ZelIsEqualGUID(riid, uuidof_class<IMediaStream>::get_guid())) {
    return scombase::GetInterface(static_cast<IMediaStream*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CAudioCompositor::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}

ULONG CAudioCompositor::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CAudioCompositor::Release() {
  return GetOwner()->Release();
}

HRESULT CAudioCompositor::SetInputAudioStream(IMediaStream* pInput) {
  Reset();
  if (pInput == nullptr) return S_FALSE;
  m_pInput = pInput;
  m_pInput->AddRef();

  IStreamInfo* info = nullptr;
  const HRESULT described = m_pInput->GetStreamInfo(&info);
  if (info == nullptr) return S_FALSE;
  if (described != S_OK) {
    info->Release();
    return S_FALSE;
  }
  m_pOutInfo.reset(new (std::nothrow) StreamInfo{});
  if (m_pOutInfo != nullptr) Describe(*info, *m_pOutInfo);
  info->Release();
  return m_pOutInfo != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CAudioCompositor::GetOutPutAudioStream(IMediaStream** ppOutput) {
  return scombase::GetInterface(static_cast<IMediaStream*>(this),
                                reinterpret_cast<void**>(ppOutput));
}

HRESULT CAudioCompositor::AddByMediaStream(IMediaStream* pSource) {
  if (pSource == nullptr) return E_INVALIDARG;
  IStreamInfo* info = nullptr;
  pSource->GetStreamInfo(&info);
  if (info == nullptr) return E_INVALIDARG;
  const AudioInfo* audio = info->GetAudioInfo();
  const bool hasSound = audio != nullptr && audio->channels > 0;
  info->Release();
  if (!hasSound) return E_INVALIDARG;

  // A source that comes during playback starts where the input is. The seek may take long, so the
  // first is made without the lock, which a pull needs; a frame delivered meanwhile makes a second
  // one necessary.
  const auto seekToPosition = [&](std::int64_t position) {
    if (position < 0) return;
    pSource->Seek(static_cast<double>(position) / kUnitsPerSecond - m_dDelay, 1);
  };
  seekToPosition(m_llPosition.exchange(-1));

  const CSingleLock lock(&m_mutex);
  DropSource();
  m_pSource = pSource;
  m_pSource->AddRef();
  seekToPosition(m_llPosition);
  return S_OK;
}

HRESULT CAudioCompositor::Remove() {
  const CSingleLock lock(&m_mutex);
  m_fileName.clear();
  DropSource();
  return S_OK;
}

// The second source and what was made of it. REQUIRES: m_mutex is held, or nobody else can hold it.
void CAudioCompositor::DropSource() {
  if (m_pSource != nullptr) m_pSource->Release();
  m_pSource = nullptr;
  m_pConverter.reset();
  m_setAside.Clear();
}

HRESULT CAudioCompositor::SetDelayTime(double seconds) {
  m_dDelay = seconds;
  m_bReposition = true;  // After the delay: who sees the wish sees the delay that it is about.
  return S_OK;
}

double CAudioCompositor::GetDelayTime() {
  return m_dDelay;
}

HRESULT CAudioCompositor::GetStreamInfo(IStreamInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  if (m_pOutInfo == nullptr) return S_FALSE;
  *ppInfo = nullptr;
  try {
    auto info = std::make_unique<CStreamInfo>();
    info->SetStreamInfo(m_pOutInfo.get());
    return scombase::GetInterface(static_cast<IStreamInfo*>(info.release()),
                                  reinterpret_cast<void**>(ppInfo));
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CAudioCompositor::ChangeStream(int index) {
  return m_pInput != nullptr ? m_pInput->ChangeStream(index) : S_FALSE;
}

double CAudioCompositor::Seek(double seconds, int mode) {
  const CSingleLock lock(&m_mutex);
  if (m_pInput == nullptr) return -1.0;
  ClearBuffered();
  if (m_pSource != nullptr) m_pSource->Seek(seconds - m_dDelay, mode);
  // For the source that a load under way will add.
  if (GetState() == kRunning) m_llPosition = ToUnits(seconds);
  return m_pInput->Seek(seconds, mode);
}

int CAudioCompositor::Forward() {
  return m_pInput != nullptr ? m_pInput->Forward() : -1;
}

int CAudioCompositor::Backward() {
  return 0;
}

HRESULT CAudioCompositor::NotifyStreamMessage(unsigned long msg, long long param, void* p1,
                                              void* p2) {
  if (m_pInput == nullptr) return S_FALSE;
  // Every stage of a chain raises the parameter of message 1 by one.
  const auto passed = static_cast<unsigned long long>(param) + (msg == 1 ? 1 : 0);
  return m_pInput->NotifyStreamMessage(msg, static_cast<long long>(passed), p1, p2);
}

CZelSample* CAudioCompositor::GetOriginSampleEx() {
  return m_pInput != nullptr ? m_pInput->GetOriginSampleEx() : nullptr;
}

// Drops all that a host has given, a load under way included. Position, delay and file name stay.
void CAudioCompositor::Reset() {
  Stop();
  if (m_pInput != nullptr) m_pInput->Release();
  m_pInput = nullptr;
  DropSource();
  m_pOutInfo.reset();
  if (m_pOutSample != nullptr) {
    m_pOutSample->FrameAttach(nullptr);  // The frame is the input's; a sample frees what it holds.
    delete m_pOutSample;
    m_pOutSample = nullptr;
  }
  m_setAside.Free();
}
