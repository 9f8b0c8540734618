// FFmpeg's C interface, and owners for the objects it hands out.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

namespace zel::kernaldec {

struct FfmpegDeleter {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(SwrContext* swr) const { swr_free(&swr); }
};

template <class T>
using FfmpegPtr = std::unique_ptr<T, FfmpegDeleter>;

/// One second in the unit of every time stamp that crosses an interface.
inline constexpr int kTicksPerSecond = 10'000'000;
inline constexpr AVRational kTickBase = {1, kTicksPerSecond};

// A file may hold any number for a time. What is taken from one is kept within bounds that leave
// room for the sum of a few.
inline constexpr std::int64_t kFarthest = std::int64_t{1} << 60;

inline std::int64_t Bounded(std::int64_t time) {
  return std::clamp(time, -kFarthest, kFarthest);
}

/// The nearest integer, bounded.
inline std::int64_t Rounded(long double value) {
  constexpr auto farthest = static_cast<long double>(kFarthest);
  return std::isnan(value) ? 0 : std::llround(std::clamp(value, -farthest, farthest));
}

/// `time`, in units of `base`, in 100-ns units; bounded.
inline std::int64_t ToTicks(std::int64_t time, AVRational base) {
  const std::int64_t ticks = av_rescale_q(time, base, kTickBase);
  if (ticks == INT64_MIN) return time < 0 ? -kFarthest : kFarthest;  // Out of range.
  return Bounded(ticks);
}

/// Opens a decoder, with one thread of its own, for a stream.
/// @return null when there is none, or it cannot take the stream.
/// @throws std::bad_alloc
FfmpegPtr<AVCodecContext> OpenDecoder(const AVStream& stream);

}  // namespace zel::kernaldec
