#include "tools/zel/files/SoundEncoder.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/avutil.h>
}

#include "media/Ticks.h"
#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

/// The rate nearest above `rate` that `codec` takes, else the highest one.
int UsableRate(const AVCodec* codec, int rate) {
  if (codec->supported_samplerates == nullptr) return rate;
  int above = 0;
  int highest = 0;
  for (const int* known = codec->supported_samplerates; *known != 0; ++known) {
    if (*known >= rate && (above == 0 || *known < above)) above = *known;
    highest = std::max(highest, *known);
  }
  return above != 0 ? above : highest;
}

/// `layout` if `codec` takes it, else the first of its layouts with as many channels, or null.
const AVChannelLayout* UsableLayout(const AVCodec* codec, const AVChannelLayout& layout) {
  if (codec->ch_layouts == nullptr) return &layout;
  const AVChannelLayout* same = nullptr;
  for (const AVChannelLayout* known = codec->ch_layouts; known->nb_channels != 0; ++known) {
    if (av_channel_layout_compare(known, &layout) == 0) return &layout;
    if (known->nb_channels == layout.nb_channels && same == nullptr) same = known;
  }
  return same;
}

AVSampleFormat UsableFormat(const AVCodec* codec) {
  if (codec->sample_fmts == nullptr) return AV_SAMPLE_FMT_S16;
  for (const AVSampleFormat* known = codec->sample_fmts; *known != AV_SAMPLE_FMT_NONE; ++known) {
    if (*known == AV_SAMPLE_FMT_S16) return *known;
  }
  return codec->sample_fmts[0];
}

}  // namespace

SoundEncoder::SoundEncoder(const std::string& file, const Container& container, SoundFormat format,
                           const AVChannelLayout& layout, bool globalHeader)
    : file_(file),
      format_(format),
      outRate_(format.sampleRate),
      layout_(layout),
      packet_(media::NotNull(av_packet_alloc())) {
  if (std::strcmp(container.encoder, "pcm_s16le") == 0) return;

  const AVCodec* codec = avcodec_find_encoder_by_name(container.encoder);
  if (codec == nullptr) {
    throw Failure(file, std::string("FFmpeg's libraries have no encoder ") + container.encoder);
  }
  outRate_ = UsableRate(codec, format.sampleRate);
  OpenEncoder(codec, container, layout, globalHeader);
  if (encoder_->sample_fmt != AV_SAMPLE_FMT_S16 || outRate_ != format.sampleRate) OpenResampler();
  frame_.reset(media::NotNull(av_frame_alloc()));
  fifo_.reset(media::NotNull(
      av_audio_fifo_alloc(encoder_->sample_fmt, format.channels, encoder_->frame_size + 65536)));
}

void SoundEncoder::OpenEncoder(const AVCodec* codec, const Container& container,
                               const AVChannelLayout& layout, bool globalHeader) {
  const std::string what =
      std::string(container.title) + " (" + codec->name + ") holds no sound of ";
  const AVChannelLayout* usable = UsableLayout(codec, layout);
  if (usable == nullptr) {
    throw Failure(file_, what + std::to_string(format_.channels) + " channels");
  }
  encoder_.reset(media::NotNull(avcodec_alloc_context3(codec)));
  encoder_->sample_fmt = UsableFormat(codec);
  encoder_->sample_rate = outRate_;
  encoder_->time_base = TimeBase();
  encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
  if (globalHeader) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  Check(av_channel_layout_copy(&encoder_->ch_layout, usable));
  if (container.bitsPerChannel != 0) {
    const double full = std::min(outRate_ / 44100.0, 1.1);
    encoder_->bit_rate =
        static_cast<std::int64_t>(container.bitsPerChannel * full) * format_.channels;
  } else if (codec->id == AV_CODEC_ID_VORBIS) {
    encoder_->flags |= AV_CODEC_FLAG_QSCALE;
    encoder_->global_quality = 5 * FF_QP2LAMBDA;
  }
  if (const int result = avcodec_open2(encoder_.get(), codec, nullptr); result < 0) {
    throw Failure(file_, what + FormatText(format_) + ": " + media::ErrorText(result));
  }
}

void SoundEncoder::OpenResampler() {
  // Both sides get the encoder's layout, so that speakers are renamed and never mixed.
  AVChannelLayout* both = &encoder_->ch_layout;
  SwrContext* resampler = nullptr;
  Check(swr_alloc_set_opts2(&resampler, both, encoder_->sample_fmt, outRate_, both,
                            AV_SAMPLE_FMT_S16, format_.sampleRate, 0, nullptr));
  resampler_.reset(resampler);
  Check(swr_init(resampler));
  converted_.reset(media::NotNull(av_frame_alloc()));
}

void SoundEncoder::Describe(AVCodecParameters* parameters) const {
  if (encoder_) {
    Check(avcodec_parameters_from_context(parameters, encoder_.get()));
    return;
  }
  parameters->codec_type = AVMEDIA_TYPE_AUDIO;
  parameters->codec_id = AV_CODEC_ID_PCM_S16LE;
  parameters->format = AV_SAMPLE_FMT_S16;
  parameters->sample_rate = format_.sampleRate;
  parameters->bits_per_coded_sample = 16;
  parameters->block_align = 2 * format_.channels;
  parameters->bit_rate = std::int64_t{16} * format_.channels * format_.sampleRate;
  Check(av_channel_layout_copy(&parameters->ch_layout, &layout_));
}

void SoundEncoder::Start(std::int64_t time) {
  next_ = av_rescale_q(time, media::kTickBase, TimeBase());
}

void SoundEncoder::Write(const std::uint8_t* pcm, int frames, const Sink& sink) {
  if (!encoder_) {
    // The muxer reads the bytes where they lie.
    packet_->data = const_cast<std::uint8_t*>(pcm);
    packet_->size = frames * 2 * format_.channels;
    packet_->pts = packet_->dts = next_;
    packet_->duration = frames;
    packet_->flags = AV_PKT_FLAG_KEY;
    next_ += frames;
    sink(packet_.get());
    packet_->data = nullptr;
    packet_->size = 0;
    return;
  }
  Convert(pcm, frames);
  Encode(false, sink);
}

void SoundEncoder::Finish(const Sink& sink) {
  if (!encoder_) return;
  if (resampler_ && outRate_ != format_.sampleRate) Convert(nullptr, 0);
  Encode(true, sink);
}

void SoundEncoder::Convert(const std::uint8_t* pcm, int frames) {
  if (!resampler_) {
    void* planes[] = {const_cast<std::uint8_t*>(pcm)};
    Check(av_audio_fifo_write(fifo_.get(), planes, frames));
    return;
  }
  const int room = swr_get_out_samples(resampler_.get(), frames);
  Check(room);
  if (room > convertedRoom_) {
    av_frame_unref(converted_.get());
    converted_->format = encoder_->sample_fmt;
    converted_->nb_samples = room;
    Check(av_channel_layout_copy(&converted_->ch_layout, &encoder_->ch_layout));
    Check(av_frame_get_buffer(converted_.get(), 0));
    convertedRoom_ = room;
  }
  if (convertedRoom_ == 0) return;
  const int made = swr_convert(resampler_.get(), converted_->extended_data, room,
                               pcm != nullptr ? &pcm : nullptr, frames);
  Check(made);
  Check(
      av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(converted_->extended_data), made));
}

void SoundEncoder::Encode(bool all, const Sink& sink) {
  const int size = encoder_->frame_size;
  while (av_audio_fifo_size(fifo_.get()) >= (all ? 1 : size)) {
    const int count = std::min(av_audio_fifo_size(fifo_.get()), size);
    av_frame_unref(frame_.get());
    frame_->format = encoder_->sample_fmt;
    frame_->nb_samples = count;
    frame_->sample_rate = outRate_;
    Check(av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout));
    Check(av_frame_get_buffer(frame_.get(), 0));
    Check(av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(frame_->extended_data), count));
    frame_->pts = next_;
    next_ += count;
    Check(avcodec_send_frame(encoder_.get(), frame_.get()));
    Drain(sink);
  }
  if (!all) return;
  Check(avcodec_send_frame(encoder_.get(), nullptr));
  Drain(sink);
}

/// Hands on the packets that the encoder has.
void SoundEncoder::Drain(const Sink& sink) {
  for (;;) {
    const int result = avcodec_receive_packet(encoder_.get(), packet_.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
    Check(result);
    sink(packet_.get());
  }
}

void SoundEncoder::Check(int result) const {
  if (result < 0) throw Failure(file_, "encoding: " + media::ErrorText(result));
}

}  // namespace zel::tool
