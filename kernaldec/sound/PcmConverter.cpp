#include "kernaldec/sound/PcmConverter.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <cstring>
#include <new>

#include "kernaldec/sound/PcmRounding.h"

namespace zel::kernaldec {
namespace {

/// True for samples of more than 16 bits.
bool IsWide(const AVFrame& frame) {
  return av_get_bytes_per_sample(static_cast<AVSampleFormat>(frame.format)) > 2;
}

}  // namespace

PcmConverter::~PcmConverter() {
  av_channel_layout_uninit(&inLayout_);
}

bool PcmConverter::Convert(const AVFrame& frame, int first, int count, std::uint8_t* pcm) {
  const auto format = static_cast<AVSampleFormat>(frame.format);
  const int channels = frame.ch_layout.nb_channels;
  const int bytes = av_get_bytes_per_sample(format);
  if (channels <= 0 || bytes <= 0 || frame.extended_data == nullptr) return false;
  const bool planar = av_sample_fmt_is_planar(format) != 0;
  const std::size_t step = static_cast<std::size_t>(bytes) * (planar ? 1 : channels);
  const std::size_t skipped = step * static_cast<std::size_t>(first);

  const bool sameValues =
      format == AV_SAMPLE_FMT_S16 || (format == AV_SAMPLE_FMT_S16P && channels == 1);
  if (sameValues && ChannelsFor(frame) == channels) {
    std::memcpy(pcm, frame.extended_data[0] + skipped,
                sizeof(std::int16_t) * static_cast<std::size_t>(count) * channels);
    return true;
  }

  planes_.resize(planar ? channels : 1);
  for (std::size_t i = 0; i < planes_.size(); ++i) {
    planes_[i] = frame.extended_data[i] + skipped;
  }
  if (ChannelsFor(frame) != channels) return Mix(frame, count, pcm);
  return RoundToPcm({planes_.data(), format, channels}, count,
                    reinterpret_cast<std::int16_t*>(pcm));
}

/// Mixes planes_ to another count of channels.
bool PcmConverter::Mix(const AVFrame& frame, int count, std::uint8_t* pcm) {
  if (!Prepare(frame)) return false;
  if (!IsWide(frame)) return swr_convert(swr_.get(), &pcm, count, planes_.data(), count) == count;
  mixed_.resize(static_cast<std::size_t>(count) * outChannels_);
  auto* mixed = reinterpret_cast<std::uint8_t*>(mixed_.data());
  return swr_convert(swr_.get(), &mixed, count, planes_.data(), count) == count &&
         RoundToPcm({&mixed, AV_SAMPLE_FMT_FLT, outChannels_}, count,
                    reinterpret_cast<std::int16_t*>(pcm));
}

bool PcmConverter::Prepare(const AVFrame& frame) {
  const int outChannels = ChannelsFor(frame);
  if (swr_ != nullptr && inFormat_ == frame.format && outChannels_ == outChannels &&
      av_channel_layout_compare(&inLayout_, &frame.ch_layout) == 0) {
    return true;
  }
  swr_.reset();
  AVChannelLayout in{};
  AVChannelLayout out{};
  if (av_channel_layout_copy(&in, &frame.ch_layout) < 0) throw std::bad_alloc();
  // Mixing weights depend on the speakers. A layout without names is taken for the usual one.
  if (in.order == AV_CHANNEL_ORDER_UNSPEC) av_channel_layout_default(&in, in.nb_channels);
  av_channel_layout_default(&out, outChannels);
  // Both rates are the same; which one does not matter.
  constexpr int kAnyRate = 48000;
  SwrContext* swr = nullptr;
  const int made = swr_alloc_set_opts2(
      &swr, &out, IsWide(frame) ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_S16, kAnyRate, &in,
      static_cast<AVSampleFormat>(frame.format), kAnyRate, 0, nullptr);
  swr_.reset(swr);
  av_channel_layout_uninit(&in);
  av_channel_layout_uninit(&out);
  // Limit the weights to full scale for floating point, too.
  if (made < 0 || av_opt_set_double(swr, "rematrix_maxval", 1.0, 0) < 0 || swr_init(swr) < 0) {
    swr_.reset();
    return false;
  }
  if (av_channel_layout_copy(&inLayout_, &frame.ch_layout) < 0) throw std::bad_alloc();
  inFormat_ = frame.format;
  outChannels_ = outChannels;
  return true;
}

}  // namespace zel::kernaldec
