#include <cassert>
#include <cwchar>
#include <limits>
#include <new>

#include "zel/base/Ids.h"
#include "zel/compositor/detail/CompositorImpl.h"
#include "zel/mediainfo/StreamInfo.h"

namespace {

// Copies a string of an information object, cut to fit `out`, and frees the object's string.
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

bool HasAudio(IMediaStream& stream) {
  zel::Ref<IStreamInfo> info;
  stream.GetStreamInfo(info.Receive());
  const AudioInfo* audio = info ? info->GetAudioInfo() : nullptr;
  return audio != nullptr && audio->channels > 0;
}

// Seconds in 100-ns units, truncated toward zero. Values out of range saturate; the conversion
// would be undefined.
std::int64_t ToTicks(double seconds) {
  const double ticks = seconds * zel::kTicksPerSecond;
  constexpr auto kLimit = 9223372036854775808.0;  // 2 to the power of 63
  if (!(ticks > -kLimit)) return std::numeric_limits<std::int64_t>::min();
  if (ticks >= kLimit) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(ticks);
}

}  // namespace

CAudioCompositor::CAudioCompositor(IUnknown* pUnkOuter, long* phr) : CUnknown(pUnkOuter, phr) {
  pthread_mutex_init(&m_mutex, nullptr);
}

CAudioCompositor::~CAudioCompositor() {
  assert(!IsInsideCall() && "the last reference must not be released inside a stream's call");
  Reset();
  pthread_mutex_destroy(&m_mutex);
}

CAudioCompositor::CallLock::CallLock(CAudioCompositor& compositor)
    : compositor_(compositor), isLocked_(!compositor.HoldsLock()) {
  if (!isLocked_) return;
  const bool isLoader = compositor_.m_loader == std::this_thread::get_id();
  if (isLoader) compositor_.m_bLoaderWaits = true;
  pthread_mutex_lock(&compositor_.m_mutex);
  if (isLoader) compositor_.m_bLoaderWaits = false;
  compositor_.m_lockHolder.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

CAudioCompositor::CallLock::~CallLock() {
  if (!isLocked_) return;
  compositor_.m_lockHolder.store({}, std::memory_order_relaxed);
  pthread_mutex_unlock(&compositor_.m_mutex);
}

// Tells whether the calling thread holds m_mutex, so that a stream has called back. A relaxed load
// does: the thread can find its own id only where it has stored it itself.
bool CAudioCompositor::HoldsLock() const {
  return m_lockHolder.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

CAudioCompositor::StreamCall::StreamCall(ThreadId& caller)
    : caller_(caller),
      isOutermost_(caller_.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
  if (isOutermost_) caller_.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

CAudioCompositor::StreamCall::~StreamCall() {
  // Another thread may have noted its own call meanwhile.
  const bool isNoted = caller_.load(std::memory_order_relaxed) == std::this_thread::get_id();
  if (isOutermost_ && isNoted) caller_.store({}, std::memory_order_relaxed);
}

// True inside a call from this compositor: by a stream, by the loader, or by the report of a pull.
// Such a call must not drop streams. It must not wait for the loader, which may be waiting for it.
bool CAudioCompositor::IsInsideCall() const {
  const std::thread::id self = std::this_thread::get_id();
  return HoldsLock() || m_loader == self || m_inputCaller.load(std::memory_order_relaxed) == self ||
         m_sourceCaller.load(std::memory_order_relaxed) == self || m_diagnosis.IsReportingPull();
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
  if (ZelIsEqualGUID(riid, IID_ICompositorDiagnosis)) {
    return scombase::GetInterface(&m_diagnosis, ppv);
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
  if (IsInsideCall()) return E_ZEL_STATE;
  if (pInput == static_cast<IMediaStream*>(this)) return E_INVALIDARG;
  Reset();
  if (pInput == nullptr) return S_FALSE;
  m_pInput = zel::Ref<IMediaStream>::Share(pInput);

  const StreamCall call(m_inputCaller);
  zel::Ref<IStreamInfo> info;
  if (m_pInput->GetStreamInfo(info.Receive()) != S_OK || !info) return S_FALSE;
  m_pOutInfo.reset(new (std::nothrow) StreamInfo{});
  if (m_pOutInfo == nullptr) return E_OUTOFMEMORY;
  Describe(*info, *m_pOutInfo);
  return S_OK;
}

HRESULT CAudioCompositor::GetOutPutAudioStream(IMediaStream** ppOutput) {
  return scombase::GetInterface(static_cast<IMediaStream*>(this),
                                reinterpret_cast<void**>(ppOutput));
}

HRESULT CAudioCompositor::AddByMediaStream(IMediaStream* pSource) {
  if (pSource == nullptr || pSource == static_cast<IMediaStream*>(this)) return E_INVALIDARG;
  if (HoldsLock()) return E_ZEL_STATE;
  {
    const StreamCall call(m_sourceCaller);
    if (!HasAudio(*pSource)) return E_INVALIDARG;
    // Seek before taking the lock that a pull needs: a seek may take long. Seek again under the
    // lock if a frame was delivered meanwhile.
    SeekNewSource(*pSource, m_llPosition.exchange(-1));
  }
  const CallLock lock(*this);
  DropSource();
  m_pSource = zel::Ref<IMediaStream>::Share(pSource);
  SeekNewSource(*pSource, m_llPosition);
  return S_OK;
}

// Moves a source that is added during playback to the input's position, in 100-ns units; negative:
// none.
void CAudioCompositor::SeekNewSource(IMediaStream& source, std::int64_t position) const {
  if (position < 0) return;
  source.Seek(static_cast<double>(position) / zel::kTicksPerSecond - m_dDelay, 1);
}

HRESULT CAudioCompositor::Remove() {
  const CallLock lock(*this);
  if (!lock) return E_ZEL_STATE;
  {
    const std::lock_guard guard(m_fileGuard);
    m_fileName.clear();
  }
  m_diagnosis.ForgetFailure();
  DropSource();
  return S_OK;
}

// Drops the second source and the sound made of it. REQUIRES: m_mutex is held, or no other thread
// can call.
void CAudioCompositor::DropSource() {
  m_pSource = nullptr;
  m_pConverter.reset();
  m_setAside.Clear();
}

HRESULT CAudioCompositor::SetDelayTime(double seconds) {
  m_dDelay = seconds;
  m_bReposition = true;  // Last: a pull that sees the request must see this delay.
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
    auto info = zel::MakeComponent<CStreamInfo>();
    info->SetStreamInfo(m_pOutInfo.get());
    *ppInfo = info.Detach();
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT CAudioCompositor::ChangeStream(int index) {
  const StreamCall call(m_inputCaller);
  return m_pInput ? m_pInput->ChangeStream(index) : S_FALSE;
}

double CAudioCompositor::Seek(double seconds, int mode) {
  const CallLock lock(*this);
  if (!lock || !m_pInput || m_diagnosis.IsReportingPull()) return -1.0;
  ClearBuffered();
  if (m_pSource) m_pSource->Seek(seconds - m_dDelay, mode);
  // The file being loaded will be added at this position.
  if (GetState() == kRunning) m_llPosition = ToTicks(seconds);
  return m_pInput->Seek(seconds, mode);
}

int CAudioCompositor::Forward() {
  const StreamCall call(m_inputCaller);
  return m_pInput && !m_diagnosis.IsReportingPull() ? m_pInput->Forward() : -1;
}

int CAudioCompositor::Backward() {
  return 0;
}

HRESULT CAudioCompositor::NotifyStreamMessage(unsigned long msg, long long param, void* p1,
                                              void* p2) {
  const StreamCall call(m_inputCaller);
  if (!m_pInput) return S_FALSE;
  // Every stage of a chain raises the parameter of message 1 by one.
  const auto passed = static_cast<unsigned long long>(param) + (msg == 1 ? 1 : 0);
  return m_pInput->NotifyStreamMessage(msg, static_cast<long long>(passed), p1, p2);
}

CZelSample* CAudioCompositor::GetOriginSampleEx() {
  const StreamCall call(m_inputCaller);
  return m_pInput ? m_pInput->GetOriginSampleEx() : nullptr;
}

// Drops the input, the sources and all that was made of them, once a load under way has ended.
// Position, delay and file name stay.
void CAudioCompositor::Reset() {
  Stop();
  m_pInput = nullptr;
  DropSource();
  m_diagnosis.ForgetFailure();
  m_pOutInfo.reset();
  if (m_pOutSample != nullptr) m_pOutSample->FrameAttach(nullptr);  // The frame is the input's.
  m_pOutSample.reset();
  m_setAside.Free();
}
