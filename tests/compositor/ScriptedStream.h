// A compositor as a host makes it, and streams that play a script and write down every call.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "zel/compositor/detail/CompositorImpl.h"
#include "zel/zel.h"

namespace zel::test {

/// One block of a script.
struct Block {
  int channels = 2;
  int rate = 44100;
  int bits = 16;
  int bytes = 4096;
  std::int64_t pts = 0;
  bool isBufferShort = false;  ///< The buffer has a byte less.
  int streamType = AV_STREAM_AUDIO;
  bool hasFrame = true;
  bool hasData = true;
  bool hasSample = true;
  short value = 0;  ///< Of every sample. 0: none is 0, and all follow from position and name.
};

using Log = std::vector<std::string>;
using Script = std::function<Block(long)>;

inline std::atomic<int> g_liveStreams = 0;

/// A long stream whose block at position n is what `script(n)` says.
class ScriptedStream : public Component<IMediaStream> {
 public:
  explicit ScriptedStream(std::string name, Log* calls = nullptr, Script script = {})
      : log(calls),
        name_(std::move(name)),
        script_(script ? std::move(script) : [](long n) { return Block{.pts = n * 232'200}; }) {
    record.audioInfo = {44100, 2, 24, {}};
    record.type = AV_STREAM_AUDIO;
    ++g_liveStreams;
  }
  ~ScriptedStream() override {
    ExpectMargin();
    sample_->FrameAttach(nullptr);
    --g_liveStreams;
  }

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override {
    if (const auto hook = onInfo) hook();
    auto info = MakeComponent<CStreamInfo>(nullptr, nullptr);
    if (hasRecord) info->SetStreamInfo(&record);
    if (infoResult != E_FAIL) *ppInfo = info.Detach();
    return infoResult;
  }
  HRESULT ChangeStream(int index) override {
    Note("ChangeStream", index);
    return 100 + index;
  }
  CZelSample* GetSampleEx() override {
    Note("GetSampleEx");
    if (const auto hook = onSample) hook();
    if (position < 0 || position >= 100'000) return nullptr;
    const Block block = script_(position);
    if (!block.hasSample) return nullptr;
    sample_->FrameAttach(block.hasFrame ? &frame : nullptr);
    Fill(block);
    return sample_.get();
  }
  int Forward() override {
    Note("Forward");
    if (const auto hook = onForward) hook();
    ++position;
    return 7;
  }
  double Seek(double seconds, int mode) override {
    Note("Seek", seconds, mode);
    if (const auto hook = onSeek) hook();
    if (seekable) position = seconds > 0 ? static_cast<long>(seconds * 10) : 0;
    return seconds + 0.25;
  }
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override {
    Note("Notify", msg, param, p1 != nullptr, p2 != nullptr);
    return 55;
  }
  CZelSample* GetOriginSampleEx() override {
    Note("GetOriginSampleEx");
    return sample_.get();
  }

  MEDIA_FRAME frame{};
  StreamInfo record{};
  bool hasRecord = true;
  HRESULT infoResult = S_OK;  ///< Of GetStreamInfo, which gives nothing with E_FAIL.
  std::atomic<long> position = -1;
  bool seekable = true;
  std::function<void()> onSample, onSeek, onForward, onInfo;  ///< What else happens in the call.
  Log* log;  ///< Null: nothing is written down, nor allocated.

 private:
  template <class... Args>
  void Note(const char* call, Args... args) {
    if (log == nullptr) return;
    std::ostringstream text;
    text << name_ << '.' << call;
    ((text << ' ' << args), ...);
    log->push_back(text.str());
  }

  /// The buffer goes on behind the data, where nobody may write.
  void ExpectMargin() const {
    const bool isKept = std::all_of(words_.end() - kMargin, words_.end(),
                                    [](short word) { return word == kMarginWord; });
    EXPECT_TRUE(isKept) << name_;
  }

  void Fill(const Block& block) {
    ExpectMargin();
    const int count = block.bytes > 0 ? (block.bytes + 1) / 2 : 0;
    words_.assign(static_cast<std::size_t>(count + kMargin), kMarginWord);
    std::minstd_rand random(static_cast<unsigned>(position + name_[0]));
    for (int i = 0; i < count; ++i) {
      words_[i] = block.value != 0 ? block.value : static_cast<short>(random() | 0x0101);
    }
    auto* data = reinterpret_cast<unsigned char*>(words_.data());
    frame.nStreamType = block.streamType;
    frame.nFrameType = FRAME_DATA_ENCODED;
    frame.llPTS = block.pts;
    frame.audio = {block.rate,
                   block.channels,
                   block.bits,
                   block.hasData ? data : nullptr,
                   block.bytes,
                   block.isBufferShort ? block.bytes - 1
                   : block.bytes > 0   ? 2 * (count + kMargin)
                                       : block.bytes};
  }

  std::string name_;
  Script script_;
  Ref<CZelSample> sample_ = MakeComponent<CZelSample>(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
  static constexpr int kMargin = 16;
  static constexpr short kMarginWord = 0x5a5a;
  std::vector<short> words_ = std::vector<short>(kMargin, kMarginWord);
};

inline ULONG CountOf(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

/// A DiagnosisCallback whose context is a Watch.
using Watch = std::function<void(DIAGNOSIS_EVENT, const SDiagnosis&)>;
inline void CallWatch(void* watch, DIAGNOSIS_EVENT event, const SDiagnosis* now) {
  (*static_cast<Watch*>(watch))(event, *now);
}

/// A compositor and its output.
struct Host {
  void Close() { EXPECT_EQ(compositor ? compositor.Detach()->Release() : 0, 0U); }
  const MEDIA_FRAME* Pull() const {
    output->Forward();
    CZelSample* sample = output->GetSampleEx();
    return sample != nullptr ? sample->GetMediaFrame() : nullptr;
  }
  std::vector<unsigned char> PullBytes() const {
    const MEDIA_FRAME* frame = Pull();
    if (frame == nullptr) return {};
    return {frame->audio.pData, frame->audio.pData + frame->audio.nDataSize};
  }

  Ref<ICompositorDiagnosis> Diagnosis() const {
    Ref<ICompositorDiagnosis> diagnosis;
    compositor->QueryInterface(IID_ICompositorDiagnosis, diagnosis.ReceiveVoid());
    return diagnosis;
  }
  SDiagnosis Now() const {
    SDiagnosis now = {};
    EXPECT_EQ(Diagnosis()->GetDiagnosis(&now), S_OK);
    return now;
  }

  Ref<CAudioCompositor> compositor = MakeComponent<CAudioCompositor>(nullptr, nullptr);
  IMediaStream* output = compositor.get();
};

}  // namespace zel::test
