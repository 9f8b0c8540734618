// FFmpeg's objects with owners, and its errors as text.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <string>

namespace zel::tool {

/// Frees what FFmpeg's functions of the form `free(T**)` free.
template <auto kFree>
struct FreeByAddress {
  template <class T>
  void operator()(T* object) const {
    kFree(&object);
  }
};

using CodecContext = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using Frame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using Resampler = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;

struct FreeFifo {
  void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};
using Fifo = std::unique_ptr<AVAudioFifo, FreeFifo>;

struct FreeMuxer {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};
using Muxer = std::unique_ptr<AVFormatContext, FreeMuxer>;

/// What `error`, a negative result, means; with the last message that FFmpeg logged, if any, since
/// that is mostly more precise.
std::string AvText(int error);

/// Keeps FFmpeg's messages off standard error, for AvText. Call once, at the start.
void CaptureAvLog();

/// Returns what an allocation function gave. @throws std::bad_alloc when that is null.
template <class T>
T* NotNull(T* object) {
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

/// Units of the interfaces' time stamps: 100 ns.
inline constexpr AVRational kZelTimeBase = {1, 10'000'000};

}  // namespace zel::tool
