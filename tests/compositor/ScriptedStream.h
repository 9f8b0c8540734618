// Streams that play a script and write down every call.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "zel/base/Ids.h"
#include "zel/base/Unknown.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/sample/Sample.h"

/// One block of a script.
struct Block {
  int channels = 2;
  int rate = 44100;
  int bits = 16;
  int bytes = 4096;
  std::int64_t pts = 0;
  int streamType = AV_STREAM_AUDIO;
  bool hasFrame = true;
  bool hasData = true;
  bool hasSample = true;
};

using Log = std::vector<std::string>;

inline std::atomic<int> g_liveStreams = 0;

/// A stream whose block at position n is what `script(n)` says; the script's end is `length`. The
/// bytes of a block follow from its position and `seed`, none of them zero.
class ScriptedStream : public scombase::CUnknown, public IMediaStream {
 public:
  ScriptedStream(std::string name, Log* log, std::function<Block(long)> script, long length,
                 int seed = 1)
      : CUnknown(nullptr),
        m_name(std::move(name)),
        m_log(log),
        m_script(std::move(script)),
        m_length(length),
        m_seed(seed) {
    m_sample = new CZelSample(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
    m_sample->AddRef();
    m_frame = new MEDIA_FRAME{};
    m_sample->FrameAttach(m_frame);
    m_frame->nStreamType = AV_STREAM_AUDIO;
    record.audioInfo = {44100, 2, 24, {}};
    record.type = AV_STREAM_AUDIO;
    NonDelegatingAddRef();
    ++g_liveStreams;
  }
  ~ScriptedStream() override {
    m_frame->nStreamType = AV_STREAM_AUDIO;
    m_frame->audio.pData = nullptr;  // The bytes are the vector's.
    m_sample->FrameAttach(m_frame);
    m_sample->Release();
    --g_liveStreams;
  }

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override {
    if (ZelIsEqualGUID(riid, IID_IMediaStream)) {
      return scombase::GetInterface(static_cast<IMediaStream*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    return GetOwner()->QueryInterface(riid, ppv);
  }
  ULONG AddRef() override { return GetOwner()->AddRef(); }
  ULONG Release() override { return GetOwner()->Release(); }

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override {
    Note("GetStreamInfo");
    if (infoResult != S_OK) {
      if (infoAllTheSame != nullptr) infoAllTheSame->AddRef();
      *ppInfo = infoAllTheSame;
      return infoResult;
    }
    auto* info = hasRecord ? new CStreamInfo : new CStreamInfo(nullptr, nullptr);
    if (hasRecord) info->SetStreamInfo(&record);
    info->AddRef();
    *ppInfo = info;
    return S_OK;
  }
  HRESULT ChangeStream(int index) override {
    Note("ChangeStream(%d)", index);
    return 100 + index;
  }
  CZelSample* GetSampleEx() override {
    Note("GetSampleEx");
    if (position < 0 || position >= m_length) return nullptr;
    const Block block = m_script(position);
    if (!block.hasSample) return nullptr;
    m_sample->FrameAttach(block.hasFrame ? m_frame : nullptr);
    Fill(block);
    return m_sample;
  }
  int Forward() override {
    Note("Forward");
    ++position;
    return 7;
  }
  int Backward() override { return 0; }
  double Seek(double seconds, int mode) override {
    Note("Seek(%.17g, %d)", seconds, mode);
    if (onSeek) onSeek();
    if (seekable) position = seconds > 0 ? static_cast<long>(seconds * 10) : 0;
    return seconds + 0.25;
  }
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override {
    Note("Notify(%lu, %lld, %p, %p)", msg, param, p1, p2);
    return 55;
  }
  CZelSample* GetOriginSampleEx() override {
    Note("GetOriginSampleEx");
    return m_sample;
  }

  MEDIA_FRAME& frame() { return *m_frame; }

  StreamInfo record{};
  bool hasRecord = true;
  HRESULT infoResult = S_OK;
  IStreamInfo* infoAllTheSame = nullptr;  ///< Given with another result.
  std::atomic<long> position = -1;
  bool seekable = true;
  std::function<void()> onSeek;  // What else happens while the stream seeks.
  bool quiet = false;            // Writes nothing down, so that nothing is allocated.

 private:
  template <class... Args>
  void Note(const char* format, Args... args) {
    if (quiet || m_log == nullptr) return;
    char text[160];
    if constexpr (sizeof...(args) == 0) {
      std::snprintf(text, sizeof text, "%s", format);
    } else {
      std::snprintf(text, sizeof text, format, args...);
    }
    m_log->push_back(m_name + "." + text);
  }

  void Fill(const Block& block) {
    const std::size_t words = static_cast<std::size_t>(block.bytes > 0 ? block.bytes + 1 : 0) / 2;
    if (m_words.size() < words) m_words.resize(words);
    for (std::size_t i = 0; i < words; ++i) {
      m_words[i] =
          static_cast<std::uint16_t>(((static_cast<std::size_t>(position) * 7919 + i) * 31 +
                                      static_cast<std::size_t>(m_seed)) *
                                         2 +
                                     0x0101);
      m_words[i] |= 0x0101;
    }
    m_frame->nStreamType = block.streamType;
    m_frame->nFrameType = FRAME_DATA_ENCODED;
    m_frame->audio = {
        block.rate,  block.channels,
        block.bits,  block.hasData ? reinterpret_cast<unsigned char*>(m_words.data()) : nullptr,
        block.bytes, block.bytes};
    m_frame->llPTS = block.pts;
  }

  std::string m_name;
  Log* m_log;
  std::function<Block(long)> m_script;
  long m_length;
  int m_seed;
  CZelSample* m_sample = nullptr;
  MEDIA_FRAME* m_frame = nullptr;
  std::vector<std::uint16_t> m_words;
};
