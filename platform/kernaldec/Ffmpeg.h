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

}  // namespace zel::kernaldec
