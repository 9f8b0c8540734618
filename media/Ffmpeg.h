// FFmpeg's C interface, owners for the objects that it hands out, and its errors as text.
//
//   const media::Packet packet(media::NotNull(av_packet_alloc()));
//   const int result = av_read_frame(format, packet.get());
//   if (result < 0) std::cerr << media::ErrorText(result);
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <memory>
#include <new>
#include <string>

namespace zel::media {

/// Frees an object with the one of FFmpeg's functions that is made for it.
struct FfmpegDeleter {
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
  void operator()(SwrContext* resampler) const { swr_free(&resampler); }
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
  /// An input's or output's own context. MediaFile closes inputs by itself.
  void operator()(AVFormatContext* muxer) const { avformat_free_context(muxer); }
};

using CodecContext = std::unique_ptr<AVCodecContext, FfmpegDeleter>;
using Frame = std::unique_ptr<AVFrame, FfmpegDeleter>;
using Packet = std::unique_ptr<AVPacket, FfmpegDeleter>;
using Fifo = std::unique_ptr<AVAudioFifo, FfmpegDeleter>;
using Resampler = std::unique_ptr<SwrContext, FfmpegDeleter>;
using Scaler = std::unique_ptr<SwsContext, FfmpegDeleter>;
using Muxer = std::unique_ptr<AVFormatContext, FfmpegDeleter>;

/// Passes on what an allocation function returned.
/// @throws std::bad_alloc when it is null
template <class T>
T* NotNull(T* object) {
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

/// The largest picture that is decoded, in pixels: 8192 x 8192. Decoding takes up to 16 bytes for
/// each; a file of a few bytes may claim any size.
inline constexpr std::int64_t kMostPixels = std::int64_t{1} << 26;

/// Opens a decoder for a stream. It refuses pictures of more than kMostPixels, and works on the
/// calling thread only.
/// @return null when FFmpeg has no decoder for the stream, or the decoder rejects it
/// @throws std::bad_alloc
CodecContext OpenDecoder(const AVStream& stream);

/// Describes `error`, a negative result of FFmpeg. Where the code alone says little, the last
/// message that CaptureLog kept is added. Any thread.
std::string ErrorText(int error);

/// True when a picture of more than kMostPixels was refused since CaptureLog. Any thread.
bool SawLargePicture();

/// Keeps FFmpeg's messages off standard error, for ErrorText. Affects the whole process; call it
/// once, at the start.
void CaptureLog();

}  // namespace zel::media
