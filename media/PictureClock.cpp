#include "media/PictureClock.h"

#include <algorithm>
#include <cmath>

#include "media/Ticks.h"

namespace zel::media {
namespace {

// The longest picture. The sum of as many as a decoder holds back stays within kFarthest.
constexpr std::int64_t kLongest = kFarthest >> 8;
// After this many stored times in a row, every packet is taken to have one.
constexpr std::size_t kWithoutGaps = 8;
// Consecutive stored times that may be rejected. One picture in fifty has a wrong time where blocks
// hold many pictures.
constexpr int kMostDoubts = 3;
// Limits the count of packets.
constexpr int kFarAway = 1'000'000;
// Pictures per second. Higher rates are rates of clocks.
constexpr double kHighestRate = 300;

bool IsPositive(AVRational rate) {
  return rate.num > 0 && rate.den > 0;
}

AVRational RateOf(const AVFormatContext* format, const AVStream& stream) {
  const AVRational rate = av_guess_frame_rate(const_cast<AVFormatContext*>(format),
                                              const_cast<AVStream*>(&stream), nullptr);
  return IsPositive(rate) ? rate : AVRational{25, 1};
}

}  // namespace

PictureClock::PictureClock(const AVFormatContext* format, const AVStream& stream, bool isBlocks)
    : isBlocks_(isBlocks),
      base_(stream.time_base),
      rate_(RateOf(format, stream)),
      tickRate_(stream.r_frame_rate) {}

void PictureClock::StartAt(std::int64_t time) {
  Lose();
  end_ = time;
}

void PictureClock::Lose() {
  end_.reset();
  untimedLength_ = 0;
  decodeTime_.reset();
  packetsSince_ = 0;
  doubts_ = 0;
}

/// The duration of a picture.
/// @param repeatedFields fields that are shown a second time, as AVFrame::repeat_pict
long double PictureClock::Length(const AVCodecContext& codec, int repeatedFields) const {
  AVRational rate = rate_;
  if ((storesShowTimes_ || !storesDecodeTimes_) && IsPositive(codec.framerate)) {
    // If stored times have gaps, FFmpeg's average is wrong. The codec knows the rate. But MPEG-4
    // and H.264 of variable rate state the rate of a finer clock.
    const bool isClock = av_q2d(codec.framerate) > kHighestRate;
    if (!isClock) rate = codec.framerate;
    if (isClock && IsPositive(tickRate_)) rate = tickRate_;
  }
  const long double picture = static_cast<long double>(rate.den) / rate.num * base_.den / base_.num;
  const long double length = picture * (2 + std::clamp(repeatedFields, 0, 4)) / 2;
  return std::clamp<long double>(length, 1, kLongest);
}

/// The average time from one packet to the next.
long double PictureClock::DecodingLength(const AVCodecContext& codec) const {
  const long double length = Length(codec, 0);
  // In telecined film, every second picture repeats a field.
  const double share = av_q2d(rate_) / std::max(av_q2d(codec.framerate), 1e-9);
  const bool isFilm = codec.codec_id == AV_CODEC_ID_MPEG2VIDEO && share > 0.79 && share < 0.81;
  return isFilm ? length * 5 / 4 : length;
}

bool PictureClock::Settle(const std::vector<std::int64_t>& times, bool isAll,
                          const AVCodecContext& codec) {
  const long double length = DecodingLength(codec);
  bool hasGaps = false;
  // Skip the first packet. It may be the rest of a picture that began in the block before; then it
  // has the time of the next picture.
  std::size_t last = 0;
  for (std::size_t i = 1; i < times.size(); ++i) {
    if (times[i] == AV_NOPTS_VALUE) {
      hasGaps = true;
      continue;
    }
    if (last > 0) {
      const std::int64_t step = Bounded(times[i]) - Bounded(times[last]);
      hasGaps = hasGaps || step <= 0;
      const long double wanted = length * static_cast<long double>(i - last);
      if (hasGaps && std::fabs(static_cast<long double>(step) - wanted) <= length / 2) {
        hasGaps_ = true;
        decodeTime_ = static_cast<long double>(Bounded(times[last])) -
                      length * static_cast<long double>(last + 1);
        packetsSince_ = 0;
        return true;
      }
    }
    last = i;
  }
  return !hasGaps && (isAll || times.size() >= kWithoutGaps);
}

void PictureClock::Check(AVPacket* packet, const AVCodecContext& codec) {
  storesShowTimes_ = storesShowTimes_ || packet->pts != AV_NOPTS_VALUE;
  storesDecodeTimes_ = storesDecodeTimes_ || packet->dts != AV_NOPTS_VALUE;
  showsOutOfOrder_ =
      showsOutOfOrder_ || (packet->pts != AV_NOPTS_VALUE && packet->pts != packet->dts);
  packetsSince_ = std::min(packetsSince_ + 1, kFarAway);
  if (packet->dts == AV_NOPTS_VALUE) {
    hasGaps_ = hasGaps_ || storesDecodeTimes_;
    return;
  }
  // If a picture's start code crosses the border of two blocks, FFmpeg's parser gives it the time
  // of the second block, which belongs to the next picture: the time is one picture late. A real
  // gap stays that late, and is accepted after a few packets.
  const auto time = static_cast<long double>(Bounded(packet->dts));
  bool isNext = false;
  if (hasGaps_ && decodeTime_ && doubts_ < kMostDoubts) {
    const long double length = DecodingLength(codec);
    const long double late = time - *decodeTime_ - length * packetsSince_;
    isNext = late > length / 2 && late < length * 3 / 2;
  }
  doubts_ = isNext ? doubts_ + 1 : 0;
  if (isNext) {
    packet->pts = AV_NOPTS_VALUE;
    packet->dts = AV_NOPTS_VALUE;
  } else {
    decodeTime_ = time;
    packetsSince_ = 0;
  }
}

void PictureClock::Stamp(AVFrame* picture, const AVCodecContext& codec) {
  const long double length = picture->pkt_duration > 0 ? std::min(picture->pkt_duration, kLongest)
                                                       : Length(codec, picture->repeat_pict);
  // Some writers store the decoding time as the presentation time.
  const bool hasShowTimes =
      storesShowTimes_ && (isBlocks_ || showsOutOfOrder_ || codec.has_b_frames <= 0);
  std::optional<long double> time = end_;
  if (hasShowTimes) {
    if (picture->pts != AV_NOPTS_VALUE) time = Bounded(picture->pts);
  } else if (picture->pkt_dts != AV_NOPTS_VALUE) {
    // The decoding time of the packet that made the decoder output the picture. By then the decoder
    // holds has_b_frames later pictures.
    time = Bounded(picture->pkt_dts) - std::max(codec.has_b_frames, 0) * length;
  }
  picture->pts = time ? Rounded(*time) : AV_NOPTS_VALUE;
  picture->pkt_duration = Rounded(length);
  if (time) {
    end_ = *time + length;
  } else {
    untimedLength_ += length;
  }
}

}  // namespace zel::media
