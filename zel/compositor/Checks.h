// A checking wrapper for the development of hosts: it stands between a host and a compositor and
// names the host's mistakes.
//
//   zel::HostChecks checks;                          // one line on standard error per mistake
//   compositor = checks.Wrap(compositor.get());      // the only change; leave it out in a release
//
// The wrapped compositor behaves as the compositor does, but each pull gives a sample of its own.
// It wraps the streams that it is given, so
// their frames are checked, too. Each mistake is named once for each object.
//
// All of it is in this header and belongs to the host; the library knows nothing of it.
//
// Threads: one thread makes and destroys a HostChecks; any thread may call Wrap. The objects have
// the thread rules of what they wrap.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "zel/base/Component.h"
#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/Diagnosis.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/sample/Sample.h"

namespace zel {

/// What a host has done wrong.
enum class HostMistake : std::int32_t {
  kSizeBeyondBuffer,  ///< A frame claims more bytes than its buffer has.
  kNoData,            ///< A frame has a size, but its data is null.
  kNegativeSize,      ///< A frame's size is negative.
  kNotAudio,          ///< A frame is a picture.
  kNotPcm16,          ///< A frame's samples do not have 16 bits.
  kOtherFormat,       ///< A frame of the input has another format than its description.
  kNoTime,            ///< A frame of the input has no time stamp.
  kEmptyBlocks,       ///< A track gives nothing but empty blocks, and the pull does not return.
  kChannels,          ///< The converter has no rule for these channel counts: the track is silent.
  kNoInput,           ///< A pull came without an input, or the input has no description.
  kNotLoadedAgain,    ///< AddByFileName does not load a name again before Remove.
  kNullArgument,      ///< A required pointer is null.
  kOwnOutput,         ///< The compositor was given its own output.
  kInsideCall,        ///< A call that must not come from inside a stream.
  kTwoThreads,        ///< Two threads are in calls that exclude each other.
  kBorrowedSample,    ///< The output's sample was kept or released, although it is lent.
  kAfterRelease,      ///< A call came after the last Release.
  kAliveAtEnd,        ///< The host still holds an object at the end.
};

/// Receives a mistake and a line about it. It may be called on any thread that calls the compositor
/// or its streams, also during a pull: it must not call the compositor, and must not throw.
using HostMistakeCallback = void (*)(void* context, HostMistake mistake, const char* text);

/// What only the wrapper itself uses.
namespace checks {

class Watched;

/// What the objects of one HostChecks share. Those that a host holds for too long outlive it.
struct Session {
  Session(HostMistakeCallback function, void* argument) : callback(function), context(argument) {}

  const HostMistakeCallback callback;
  void* const context;
  std::atomic<bool> hasEnded{false};
  std::mutex guard;
  std::vector<Watched*> objects;  // One reference each, until the end.
};

/// An object that stays after its last Release, as a tombstone that names calls which come later.
class Watched {
 public:
  Watched(const Watched&) = delete;
  Watched& operator=(const Watched&) = delete;
  virtual ~Watched() = default;
  /// Names the object if the host still holds it.
  virtual void ReportIfHeld() const = 0;
  /// Gives back the session's reference.
  virtual void Drop() = 0;

  /// Names a mistake, once for each object.
  void Report(HostMistake mistake, const std::string& what) const {
    const auto bit = std::uint32_t{1} << static_cast<unsigned>(mistake);
    if (session_->hasEnded || (reported_.fetch_or(bit) & bit) != 0) return;
    const std::string text = name_ + ": " + what;
    if (session_->callback != nullptr) {
      session_->callback(session_->context, mistake, text.c_str());
    } else {
      std::fprintf(stderr, "host mistake: %s\n", text.c_str());
    }
  }

 protected:
  Watched(std::shared_ptr<Session> session, std::string name)
      : session_(std::move(session)), name_(std::move(name)) {}
  /// Tells whether `call` comes after the last Release, and names it then.
  bool IsGone(const char* call) const {
    if (isGone_) Report(HostMistake::kAfterRelease, std::string(call) + " after the last Release");
    return isGone_;
  }

  const std::shared_ptr<Session> session_;
  const std::string name_;
  std::atomic<bool> isGone_{false};

 private:
  mutable std::atomic<std::uint32_t> reported_{0};
};

/// A component that is watched. The session holds one reference, the host the others.
template <class... Interfaces>
class WatchedComponent : public Component<Interfaces...>, public Watched {
 public:
  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override {
    if (!IsGone("QueryInterface")) return Query(riid, ppv);
    if (ppv != nullptr) *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG NonDelegatingAddRef() override {
    if (IsGone("AddRef")) return 0;
    return scombase::CUnknown::NonDelegatingAddRef() - (session_->hasEnded ? 0 : 1);
  }
  ULONG NonDelegatingRelease() override {
    if (IsGone("Release")) return 0;
    if (session_->hasEnded) return scombase::CUnknown::NonDelegatingRelease();
    const ULONG left = scombase::CUnknown::NonDelegatingRelease() - 1;
    if (left != 0) return left;
    isGone_ = true;
    LetGo();
    return 0;
  }
  void ReportIfHeld() const override {}
  void Drop() override { scombase::CUnknown::NonDelegatingRelease(); }

 protected:
  WatchedComponent(const std::shared_ptr<Session>& session, std::string name)
      : Watched(session, std::move(name)) {
    if (session->hasEnded) return;
    const std::lock_guard<std::mutex> lock(session->guard);
    session->objects.push_back(this);
    scombase::CUnknown::NonDelegatingAddRef();
  }

  virtual HRESULT Query(const _GUID& riid, void** ppv) {
    return Component<Interfaces...>::NonDelegatingQueryInterface(riid, ppv);
  }
  /// Releases what is wrapped.
  virtual void LetGo() = 0;
};

/// The calls to streams of a compositor that the thread is inside of.
struct StreamCall {
  explicit StreamCall(const void* owner) : compositor(owner), below(Innermost()) {
    Innermost() = this;
  }
  StreamCall(const StreamCall&) = delete;
  StreamCall& operator=(const StreamCall&) = delete;
  ~StreamCall() { Innermost() = below; }

  static StreamCall*& Innermost() {
    thread_local StreamCall* innermost = nullptr;
    return innermost;
  }
  static bool IsInside(const void* compositor) {
    const StreamCall* call = Innermost();
    while (call != nullptr && call->compositor != compositor) call = call->below;
    return call != nullptr;
  }

  const void* const compositor;
  StreamCall* const below;
};

/// A stream of the host's: looks at each frame that it gives.
class CheckedStream final : public WatchedComponent<IMediaStream> {
 public:
  CheckedStream(const std::shared_ptr<Session>& session, IMediaStream* stream, bool isInput,
                const void* compositor)
      : WatchedComponent(session, isInput ? "input" : "track"),
        stream_(Ref<IMediaStream>::Share(stream)),
        isInput_(isInput),
        compositor_(compositor) {}

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override {
    const StreamCall call(compositor_);
    const HRESULT result = stream_->GetStreamInfo(ppInfo);
    const bool isGiven = result == S_OK && ppInfo != nullptr && *ppInfo != nullptr;
    const AudioInfo* audio = isGiven ? (*ppInfo)->GetAudioInfo() : nullptr;
    if (audio != nullptr) described_ = *audio;
    return result;
  }
  HRESULT ChangeStream(int index) override {
    const StreamCall call(compositor_);
    return stream_->ChangeStream(index);
  }
  CZelSample* GetSampleEx() override {
    const StreamCall call(compositor_);
    CZelSample* sample = stream_->GetSampleEx();
    const MEDIA_FRAME* frame = sample != nullptr ? sample->GetMediaFrame() : nullptr;
    if (frame != nullptr) Check(*frame);
    return sample;
  }
  int Forward() override {
    const StreamCall call(compositor_);
    return stream_->Forward();
  }
  int Backward() override {
    const StreamCall call(compositor_);
    return stream_->Backward();
  }
  double Seek(double seconds, int mode) override {
    const StreamCall call(compositor_);
    return stream_->Seek(seconds, mode);
  }
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override {
    const StreamCall call(compositor_);
    return stream_->NotifyStreamMessage(msg, param, p1, p2);
  }
  CZelSample* GetOriginSampleEx() override {
    const StreamCall call(compositor_);
    return stream_->GetOriginSampleEx();
  }

 private:
  /// No stream pauses for so many blocks: the compositor reads on until one has sound.
  static constexpr int kMostEmptyBlocks = 1000;

  void LetGo() override { stream_ = nullptr; }

  void Check(const MEDIA_FRAME& frame) {
    const MEDIA_FRAME_AUDIO& audio = frame.audio;
    if (frame.nStreamType == AV_STREAM_VIDEO) {
      return Report(HostMistake::kNotAudio, "a frame is a picture");
    }
    const std::string size = std::to_string(audio.nDataSize) + " bytes";
    if (audio.nDataSize < 0) Report(HostMistake::kNegativeSize, "a frame of " + size);
    if (audio.nDataSize > 0 && audio.pData == nullptr) {
      Report(HostMistake::kNoData, "a frame of " + size + ", but its data is null");
    }
    if (audio.nDataSize > audio.nBufferSize) {
      Report(HostMistake::kSizeBeyondBuffer,
             "a frame of " + size + " in a buffer of " + std::to_string(audio.nBufferSize));
    }
    const int width = audio.nBitsPerSample / 8;
    if (width != 2 && width != 0) {
      Report(HostMistake::kNotPcm16,
             "samples of " + std::to_string(audio.nBitsPerSample) + " bits");
    }
    if (isInput_) {
      CheckInput(frame);
    } else {
      emptyBlocks_ = audio.nDataSize == 0 ? emptyBlocks_ + 1 : 0;
      if (emptyBlocks_ >= kMostEmptyBlocks) {
        Report(HostMistake::kEmptyBlocks, "nothing but empty blocks: the pull does not return");
      }
    }
  }

  void CheckInput(const MEDIA_FRAME& frame) {
    if (frame.audio.nSampleRate != described_.sampleRate ||
        frame.audio.nChannels != described_.channels) {
      const auto text = [](int rate, int channels) {
        return std::to_string(channels) + " channels at " + std::to_string(rate) + " Hz";
      };
      Report(HostMistake::kOtherFormat,
             "a frame of " + text(frame.audio.nSampleRate, frame.audio.nChannels) +
                 ", described as " + text(described_.sampleRate, described_.channels));
    }
    if (frame.llPTS == -1 || frame.llPTS == INT64_MIN)
      Report(HostMistake::kNoTime, "a frame without a time stamp");
  }

  Ref<IMediaStream> stream_;
  const bool isInput_;
  const void* const compositor_;  // Only its address.
  AudioInfo described_ = {};
  int emptyBlocks_ = 0;
};

/// A compositor: looks at the calls that the host makes.
class CheckedCompositor final : public WatchedComponent<IAudioCompositor, IMediaStream> {
 public:
  CheckedCompositor(const std::shared_ptr<Session>& session, IAudioCompositor* compositor)
      : WatchedComponent(session, "compositor"),
        compositor_(Ref<IAudioCompositor>::Share(compositor)) {
    compositor->GetOutPutAudioStream(output_.Receive());
    compositor->QueryInterface(IID_ICompositorDiagnosis, diagnosis_.ReceiveVoid());
  }
  ~CheckedCompositor() override { TakeSampleBack(); }
  void ReportIfHeld() const override {
    if (isGone_) return;
    Report(HostMistake::kAliveAtEnd,
           std::to_string(GetRefCount() - 1) + " references are held at the end");
  }

  HRESULT SetInputAudioStream(IMediaStream* pInput) override {
    const Entry entry(this, "SetInputAudioStream", kAlone);
    if (!entry) return E_ZEL_STATE;
    if (IsOwnOutput(pInput)) return E_INVALIDARG;
    if (!StreamCall::IsInside(this)) TakeSampleBack();
    const Ref<IMediaStream> input = Wrap(pInput, true);
    hasNewSource_ = true;
    return Checked("SetInputAudioStream", compositor_->SetInputAudioStream(input.get()));
  }
  HRESULT GetOutPutAudioStream(IMediaStream** ppOutput) override {
    if (IsGone("GetOutPutAudioStream")) return E_ZEL_STATE;
    if (ppOutput == nullptr) Report(HostMistake::kNullArgument, "GetOutPutAudioStream of null");
    return scombase::GetInterface(static_cast<IMediaStream*>(this),
                                  reinterpret_cast<void**>(ppOutput));
  }
  HRESULT AddByMediaStream(IMediaStream* pSource) override {
    const Entry entry(this, "AddByMediaStream", kControl);
    if (!entry) return E_ZEL_STATE;
    if (pSource == nullptr) Report(HostMistake::kNullArgument, "AddByMediaStream of null");
    if (IsOwnOutput(pSource)) return E_INVALIDARG;
    const Ref<IMediaStream> source = Wrap(pSource, false);
    hasNewSource_ = true;
    return Checked("AddByMediaStream", compositor_->AddByMediaStream(source.get()));
  }
  HRESULT AddByFileName(wchar_t* fileName) override {
    const Entry entry(this, "AddByFileName", kAnyTime);
    if (!entry) return E_ZEL_STATE;
    if (fileName == nullptr) Report(HostMistake::kNullArgument, "AddByFileName of null");
    const SDiagnosis before = Now();
    const HRESULT result = compositor_->AddByFileName(fileName);
    const SDiagnosis after = Now();
    if (result != S_OK) return result;
    if (after.isLoading != 0 || after.loads != before.loads) {
      hasNewSource_ = false;
    } else if (hasNewSource_ || (after.load != LOAD_ADDED && after.load != LOAD_NONE)) {
      Report(HostMistake::kNotLoadedAgain, "AddByFileName of the same name before Remove");
    }
    return result;
  }
  HRESULT Remove() override {
    const Entry entry(this, "Remove", kControl);
    if (!entry) return E_ZEL_STATE;
    hasNewSource_ = false;
    return Checked("Remove", compositor_->Remove());
  }
  HRESULT SetDelayTime(double seconds) override {
    const Entry entry(this, "SetDelayTime", kControl);
    return entry ? compositor_->SetDelayTime(seconds) : E_ZEL_STATE;
  }
  double GetDelayTime() override {
    const Entry entry(this, "GetDelayTime", kControl);
    return entry ? compositor_->GetDelayTime() : 0.0;
  }

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override {
    const Entry entry(this, "GetStreamInfo", kAnyTime);
    if (!entry) return E_ZEL_STATE;
    if (ppInfo == nullptr) Report(HostMistake::kNullArgument, "GetStreamInfo of null");
    return output_->GetStreamInfo(ppInfo);
  }
  HRESULT ChangeStream(int index) override {
    const Entry entry(this, "ChangeStream", kPull);
    return entry ? output_->ChangeStream(index) : E_ZEL_STATE;
  }
  CZelSample* GetSampleEx() override {
    const Entry entry(this, "GetSampleEx", kPull);
    if (!entry) return nullptr;
    const bool isInside = StreamCall::IsInside(this);
    if (!isInside) TakeSampleBack();
    CZelSample* sample = output_->GetSampleEx();
    if (sample != nullptr) return Lend(sample->GetMediaFrame());
    if (isInside) Report(HostMistake::kInsideCall, "GetSampleEx inside a stream's call");
    const PULL_RESULT why = Now().pull;
    if (why == PULL_ENDED_NO_INPUT || why == PULL_ENDED_NO_DESCRIPTION) {
      Report(HostMistake::kNoInput, std::string("GetSampleEx: ") + DiagnosisText(why));
    }
    return nullptr;
  }
  int Forward() override {
    const Entry entry(this, "Forward", kPull);
    if (!entry) return -1;
    if (!StreamCall::IsInside(this)) TakeSampleBack();
    return output_->Forward();
  }
  int Backward() override {
    const Entry entry(this, "Backward", kPull);
    return entry ? output_->Backward() : -1;
  }
  double Seek(double seconds, int mode) override {
    const Entry entry(this, "Seek", kAnyTime);
    if (!entry) return -1.0;
    const double reached = output_->Seek(seconds, mode);
    if (reached < 0 && StreamCall::IsInside(this)) {
      Report(HostMistake::kInsideCall, "Seek inside a stream's call");
    }
    return reached;
  }
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override {
    const Entry entry(this, "NotifyStreamMessage", kPull);
    return entry ? output_->NotifyStreamMessage(msg, param, p1, p2) : E_ZEL_STATE;
  }
  CZelSample* GetOriginSampleEx() override {
    const Entry entry(this, "GetOriginSampleEx", kPull);
    return entry ? output_->GetOriginSampleEx() : nullptr;
  }

 private:
  /// Which calls exclude each other: two that pull, two that control, and one that must be alone
  /// with every other one.
  enum Group { kPull, kControl, kAnyTime, kAlone };
  using Call = std::pair<Group, std::thread::id>;

  /// A call that is under way.
  class Entry {
   public:
    Entry(CheckedCompositor* checked, const char* call, Group group)
        : checked_(*checked), group_(group), isRefused_(checked->IsGone(call)) {
      if (isRefused_) return;
      // Calls from inside a stream are judged by what they do, and belong to a call that is here.
      isNested_ = StreamCall::IsInside(checked);
      if (isNested_) return;
      if (Begin()) return;
      checked_.Report(HostMistake::kTwoThreads,
                      std::string(call) + " while another thread is in a call");
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() {
      if (isRefused_ || isNested_) return;
      const std::lock_guard<std::mutex> lock(checked_.callsGuard_);
      auto& calls = checked_.calls_;
      calls.erase(std::find(calls.begin(), calls.end(), Call{group_, std::this_thread::get_id()}));
    }
    explicit operator bool() const { return !isRefused_; }

   private:
    /// @return false when a call is under way that excludes this one.
    bool Begin() {
      const std::lock_guard<std::mutex> lock(checked_.callsGuard_);
      bool isAllowed = true;
      for (const auto& [other, thread] : checked_.calls_) {
        const bool excludes =
            group_ == kAlone || other == kAlone || (group_ == other && group_ != kAnyTime);
        // The thread's own other call is reporting a pull: it is refused, but no second thread.
        if (excludes && thread != std::this_thread::get_id()) isAllowed = false;
      }
      checked_.calls_.emplace_back(group_, std::this_thread::get_id());
      return isAllowed;
    }

    CheckedCompositor& checked_;
    const Group group_;
    const bool isRefused_;
    bool isNested_ = false;
  };

  /// Other interfaces are the compositor's own; calls through them are not checked.
  HRESULT Query(const _GUID& riid, void** ppv) override {
    const HRESULT result = WatchedComponent::Query(riid, ppv);
    return result == E_NOINTERFACE ? compositor_->QueryInterface(riid, ppv) : result;
  }

  void LetGo() override {
    // The calls go on. The compositor is kept until the session ends.
    if (StreamCall::IsInside(this)) {
      return Report(HostMistake::kInsideCall, "the last Release inside a stream's call");
    }
    if (IsCalling()) {
      return Report(HostMistake::kInsideCall, "the last Release inside a callback");
    }
    if (IsBusy()) return Report(HostMistake::kTwoThreads, "the last Release during a call");
    TakeSampleBack();
    diagnosis_ = nullptr;
    output_ = nullptr;
    compositor_ = nullptr;
  }

  bool IsBusy() {
    const std::lock_guard<std::mutex> lock(callsGuard_);
    return !calls_.empty();
  }

  /// Whether the calling thread is inside a call that has called the host back.
  bool IsCalling() {
    const std::lock_guard<std::mutex> lock(callsGuard_);
    return std::any_of(calls_.begin(), calls_.end(),
                       [](const Call& call) { return call.second == std::this_thread::get_id(); });
  }

  bool IsOwnOutput(IMediaStream* stream) {
    const bool isOwn =
        stream != nullptr && scombase::IsEqualObject(stream, static_cast<IMediaStream*>(this)) == 1;
    if (isOwn) Report(HostMistake::kOwnOutput, "its own output as input or source");
    return isOwn;
  }

  Ref<IMediaStream> Wrap(IMediaStream* stream, bool isInput) {
    if (stream == nullptr) return nullptr;
    return MakeComponent<CheckedStream>(session_, stream, isInput, this);
  }

  HRESULT Checked(const char* call, HRESULT result) const {
    if (result == E_ZEL_STATE) {
      Report(HostMistake::kInsideCall, std::string(call) + " inside a stream's call or a callback");
    }
    return result;
  }

  SDiagnosis Now() const {
    SDiagnosis now = {};
    if (diagnosis_) diagnosis_->GetDiagnosis(&now);
    return now;
  }

  /// Lends a sample of its own. It has one reference more than anyone should give back, so that a
  /// wrong Release does not destroy it.
  CZelSample* Lend(MEDIA_FRAME* frame) {
    if (Now().pull == PULL_SILENT_CHANNELS) {
      Report(HostMistake::kChannels, DiagnosisText(PULL_SILENT_CHANNELS));
    }
    auto* sample = new CZelSample(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
    sample->AddRef();
    sample->AddRef();
    sample->FrameAttach(frame);
    TakeSampleBack();
    lent_ = sample;
    return sample;
  }

  void TakeSampleBack() {
    CZelSample* sample = lent_.exchange(nullptr);
    if (sample == nullptr) return;
    const long count = sample->GetRefCount();
    if (count != 2) {
      Report(HostMistake::kBorrowedSample,
             count > 2 ? "the sample of an earlier call was kept" : "a lent sample was released");
    }
    sample->FrameAttach(nullptr);  // The frame is the input's.
    sample->Release();
    if (count > 1) sample->Release();
  }

  Ref<IAudioCompositor> compositor_;
  Ref<IMediaStream> output_;
  Ref<ICompositorDiagnosis> diagnosis_;
  std::atomic<CZelSample*> lent_{nullptr};
  std::atomic<bool> hasNewSource_{false};  // Since the last file.
  std::mutex callsGuard_;
  std::vector<Call> calls_;  // Those under way.
};

}  // namespace checks

/// Wraps compositors. Wrapped objects stay in memory, as tombstones, until it is destroyed. Their
/// calls may throw std::bad_alloc.
class HostChecks {
 public:
  /// @param callback receives the mistakes; null: one line each on standard error.
  explicit HostChecks(HostMistakeCallback callback = nullptr, void* context = nullptr)
      : session_(std::make_shared<checks::Session>(callback, context)) {}
  HostChecks(const HostChecks&) = delete;
  HostChecks& operator=(const HostChecks&) = delete;
  /// Names the objects that the host still holds, in the order in which they were wrapped. Destroy
  /// it before the library is unloaded. After that no wrapped object is checked any more.
  ~HostChecks() {
    for (const checks::Watched* object : session_->objects) object->ReportIfHeld();
    session_->hasEnded = true;
    for (checks::Watched* object : session_->objects) object->Drop();
  }

  /// Wraps `compositor`, which is not null and held until the last Release. Call it before anything
  /// else is done with the compositor.
  /// @throws std::bad_alloc
  Ref<IAudioCompositor> Wrap(IAudioCompositor* compositor) {
    return MakeComponent<checks::CheckedCompositor>(session_, compositor);
  }

 private:
  const std::shared_ptr<checks::Session> session_;
};

}  // namespace zel
