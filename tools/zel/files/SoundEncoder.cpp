#include "tools/zel/files/SoundEncoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

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

// The speakers that codecs can name. FFmpeg's encoders do not tell.
constexpr std::uint64_t kOfVorbis[] = {
    AV_CH_LAYOUT_MONO,    AV_CH_LAYOUT_STEREO,       AV_CH_LAYOUT_SURROUND,
    AV_CH_LAYOUT_QUAD,    AV_CH_LAYOUT_5POINT0_BACK, AV_CH_LAYOUT_5POINT1_BACK,
    AV_CH_LAYOUT_6POINT1, AV_CH_LAYOUT_7POINT1,
};
// The usual ones of AAC, and others that decoders recognise.
constexpr std::uint64_t kOfAac[] = {
    AV_CH_LAYOUT_MONO,    AV_CH_LAYOUT_STEREO,       AV_CH_LAYOUT_SURROUND,
    AV_CH_LAYOUT_4POINT0, AV_CH_LAYOUT_5POINT0_BACK, AV_CH_LAYOUT_5POINT1_BACK,
    AV_CH_LAYOUT_7POINT1, AV_CH_LAYOUT_2POINT1,      AV_CH_LAYOUT_2_1,
    AV_CH_LAYOUT_QUAD,    AV_CH_LAYOUT_2_2,
};
constexpr std::uint64_t kOfMp3[] = {AV_CH_LAYOUT_MONO, AV_CH_LAYOUT_STEREO};

/// The speakers that `codec` can name, the usual ones of each number first; none: all.
std::span<const std::uint64_t> SpeakersOf(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_VORBIS:
    case AV_CODEC_ID_OPUS:
      return kOfVorbis;
    case AV_CODEC_ID_AAC:
      return kOfAac;
    case AV_CODEC_ID_MP3:
      return kOfMp3;
    default:
      return {};
  }
}

/// The same with side speakers for the back ones, or the other way round, where that keeps the
/// order of the channels. 0: there is no such mask.
std::uint64_t SidesExchanged(std::uint64_t speakers) {
  constexpr std::uint64_t kBack = AV_CH_BACK_LEFT | AV_CH_BACK_RIGHT;
  constexpr std::uint64_t kSide = AV_CH_SIDE_LEFT | AV_CH_SIDE_RIGHT;
  const std::uint64_t pair = speakers & (kBack | kSide);
  const bool between = (speakers & AV_CH_BACK_CENTER) != 0;
  return (pair == kBack || pair == kSide) && !between ? speakers ^ kBack ^ kSide : 0;
}

/// The first of `speakers` with `channels` channels; 0: there is none.
std::uint64_t UsualOf(std::span<const std::uint64_t> speakers, int channels) {
  for (const std::uint64_t known : speakers) {
    if (std::popcount(known) == channels) return known;
  }
  return 0;
}

/// Finds how `codec` names the speakers of `layout`: as they are, or with other names of those of
/// the sides. Unknown ones become the codec's usual ones.
/// @return 0 when it has no names for them
std::uint64_t SpeakersStored(AVCodecID codec, const AVChannelLayout& layout) {
  const auto all = SpeakersOf(codec);
  if (layout.order != AV_CHANNEL_ORDER_NATIVE) return UsualOf(all, layout.nb_channels);
  for (const std::uint64_t way : {layout.u.mask, SidesExchanged(layout.u.mask)}) {
    if (std::find(all.begin(), all.end(), way) != all.end()) return way;
  }
  return 0;
}

std::string NameOf(const AVChannelLayout& layout) {
  char name[128] = {};
  av_channel_layout_describe(&layout, name, sizeof(name));
  return name;
}

/// The format in which `codec` takes 16-bit samples, or `resampled` ones, which are not yet
/// rounded.
AVSampleFormat UsableFormat(const AVCodec* codec, bool resampled) {
  const AVSampleFormat wanted = resampled ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_S16;
  if (codec->sample_fmts == nullptr) return AV_SAMPLE_FMT_S16;
  for (const AVSampleFormat* known = codec->sample_fmts; *known != AV_SAMPLE_FMT_NONE; ++known) {
    if (*known == wanted) return *known;
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
  const AVChannelLayout stored = LayoutToStore(codec->id, layout, what);
  encoder_.reset(media::NotNull(avcodec_alloc_context3(codec)));
  encoder_->sample_fmt = UsableFormat(codec, outRate_ != format_.sampleRate);
  encoder_->sample_rate = outRate_;
  encoder_->time_base = timeBase();
  encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
  if (globalHeader) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  Check(av_channel_layout_copy(&encoder_->ch_layout, &stored));
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

/// Finds the layout by which the encoder says `layout`, and notes how it differs.
/// @param what begins the failure
AVChannelLayout SoundEncoder::LayoutToStore(AVCodecID codec, const AVChannelLayout& layout,
                                            const std::string& what) {
  AVChannelLayout stored = layout;
  const auto all = SpeakersOf(codec);
  if (all.empty()) return stored;
  const bool isKnown = layout.order == AV_CHANNEL_ORDER_NATIVE;
  if (const std::uint64_t speakers = SpeakersStored(codec, layout); speakers != 0) {
    stored.order = AV_CHANNEL_ORDER_NATIVE;
    stored.u.mask = speakers;
    if (isKnown && speakers != layout.u.mask) {
      layoutNote_ = "speakers " + NameOf(layout) + " stored as " + NameOf(stored);
    }
  } else if (codec == AV_CODEC_ID_AAC) {
    // AAC lists such channels in their order, but decoders do not know the speakers.
    if (isKnown) layoutNote_ = "speakers " + NameOf(layout) + " not named";
    if (!isKnown) av_channel_layout_default(&stored, layout.nb_channels);
  } else if (UsualOf(all, layout.nb_channels) != 0) {
    throw Failure(file_, what + "the speakers " + NameOf(layout));
  } else {
    throw Failure(file_, what + std::to_string(layout.nb_channels) + " channels");
  }
  return stored;
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
  next_ = av_rescale_q(time, media::kTickBase, timeBase());
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
