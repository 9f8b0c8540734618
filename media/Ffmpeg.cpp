#include "media/Ffmpeg.h"

#include <new>

namespace zel::kernaldec {

FfmpegPtr<AVCodecContext> OpenDecoder(const AVStream& stream) {
  const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
  if (codec == nullptr) return nullptr;
  FfmpegPtr<AVCodecContext> context(avcodec_alloc_context3(codec));
  if (context == nullptr) throw std::bad_alloc();
  if (avcodec_parameters_to_context(context.get(), stream.codecpar) < 0) return nullptr;
  // Needed for time stamps that follow when priming samples are cut off.
  context->pkt_timebase = stream.time_base;
  context->thread_count = 1;
  if (avcodec_open2(context.get(), codec, nullptr) < 0) return nullptr;
  return context;
}

}  // namespace zel::kernaldec
