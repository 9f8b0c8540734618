// Converts decoded frames of any sample format to interleaved 16-bit PCM.
#pragma once

#include <cstdint>
#include <vector>

#include "media/Ffmpeg.h"

namespace zel::kernaldec {

/// Rounds wider formats to the nearest value, without dither. Keeps the sample rate. Mixes channels
/// with the usual weights when their count changes. Keeps its state while the format of the frames
/// stays. One thread at a time.
class PcmConverter {
 public:
  ~PcmConverter();
  PcmConverter() = default;
  PcmConverter(const PcmConverter&) = delete;
  PcmConverter& operator=(const PcmConverter&) = delete;

  /// Sets the count of channels to deliver; 0: as many as the frame has.
  void SetChannels(int channels) { channels_ = channels; }
  int ChannelsFor(const AVFrame& frame) const {
    return channels_ != 0 ? channels_ : frame.ch_layout.nb_channels;
  }
  /// Writes samples `first` to `first + count - 1` of `frame` to `pcm`, which has room for `count`
  /// x ChannelsFor(frame) 16-bit values.
  /// @return false when the format cannot be converted
  /// @throws std::bad_alloc
  bool Convert(const AVFrame& frame, int first, int count, std::uint8_t* pcm);

 private:
  bool Prepare(const AVFrame& frame);
  bool Mix(const AVFrame& frame, int count, std::uint8_t* pcm);

  int channels_ = 0;
  media::Resampler swr_;
  int inFormat_ = AV_SAMPLE_FMT_NONE;
  int outChannels_ = 0;
  AVChannelLayout inLayout_{};
  std::vector<const std::uint8_t*> planes_;
  std::vector<float> mixed_;  ///< What is left to round.
};

}  // namespace zel::kernaldec
