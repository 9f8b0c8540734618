#include "platform/kernaldec/PictureClock.h"

#include <algorithm>
#include <cmath>

namespace zel::kernaldec {
namespace {

// Leaves room for as many pictures as a decoder holds back.
constexpr std::int64_t kLongest = kFarthest >> 8;
// As many times in a row show that each packet has one of its own.
constexpr std::size_t kWithoutGaps = 8;
// One picture in fifty lies like that in blocks of many pictures.
constexpr int kMostDoubts = 3;

bool IsPositive(AVRational rate) {
  return rate.num > 0 && rate.den > 0;
}

}  // namespace

PictureClock::PictureClock(AVRational base, AVRational rate)
    : m_base(base), m_rate(IsPositive(rate) ? rate : AVRational{25, 1}) {}

void PictureClock::StartAt(std::int64_t time) {
  Lose();
  m_end = time;
}

void PictureClock::Lose() {
  m_end = AV_NOPTS_VALUE;
  m_untimedLength = 0;
  m_lastDecodeTime = AV_NOPTS_VALUE;
  m_packetsSince = 0;
  m_doubts = 0;
}

std::int64_t PictureClock::Length(const AVCodecContext& codec, int repeatedFields) const {
  // Where the container tells no times, FFmpeg estimates its rate. The codec knows it.
  const bool isCounted = m_storesShowTimes || !m_storesDecodeTimes;
  const AVRational rate = isCounted && IsPositive(codec.framerate) ? codec.framerate : m_rate;
  const int fields = 2 + std::clamp(repeatedFields, 0, 4);
  const std::int64_t length = av_rescale_q(fields, av_inv_q(av_mul_q(rate, {2, 1})), m_base);
  return length == INT64_MIN ? kLongest : std::clamp<std::int64_t>(length, 1, kLongest);
}

bool PictureClock::Settle(const std::vector<std::int64_t>& times, bool isAll,
                          const AVCodecContext& codec) {
  const auto length = static_cast<long double>(Length(codec, 0));
  bool hasGaps = false;
  // The first packet may be the rest of a picture whose beginning was in the block before; it gets
  // the time of the next one.
  std::size_t last = 0;
  for (std::size_t i = 1; i < times.size(); ++i) {
    if (times[i] == AV_NOPTS_VALUE) {
      hasGaps = true;
      continue;
    }
    if (last > 0) {
      const long double step = static_cast<long double>(Bounded(times[i])) - Bounded(times[last]);
      hasGaps = hasGaps || step <= 0;
      const long double wanted = length * static_cast<long double>(i - last);
      if (hasGaps && std::fabs(step - wanted) <= length / 2) {
        m_hasGaps = true;
        m_lastDecodeTime =
            Bounded(times[last]) - Rounded(length * static_cast<long double>(last + 1));
        m_packetsSince = 0;
        return true;
      }
    }
    last = i;
  }
  return !hasGaps && (isAll || times.size() >= kWithoutGaps);
}

void PictureClock::Check(AVPacket* packet, const AVCodecContext& codec) {
  m_storesShowTimes = m_storesShowTimes || packet->pts != AV_NOPTS_VALUE;
  m_storesDecodeTimes = m_storesDecodeTimes || packet->dts != AV_NOPTS_VALUE;
  ++m_packetsSince;
  if (packet->dts == AV_NOPTS_VALUE) {
    m_hasGaps = m_hasGaps || m_storesDecodeTimes;
    m_showsOutOfOrder = m_showsOutOfOrder || packet->pts != AV_NOPTS_VALUE;
    return;
  }
  m_showsOutOfOrder =
      m_showsOutOfOrder || (packet->pts != AV_NOPTS_VALUE && packet->pts != packet->dts);
  // Where the start code of a picture lies across the border of two blocks, FFmpeg's parser gives
  // it the time of the second block, which is the next picture's. A real gap stays.
  bool isNext = false;
  if (m_hasGaps && m_doubts < kMostDoubts && m_lastDecodeTime != AV_NOPTS_VALUE) {
    const auto length = static_cast<long double>(Length(codec, 0));
    const long double late = static_cast<long double>(Bounded(packet->dts)) - m_lastDecodeTime -
                             length * static_cast<long double>(m_packetsSince);
    isNext = late > length / 2 && late < length * 3 / 2;
  }
  m_doubts = isNext ? m_doubts + 1 : 0;
  if (isNext) {
    packet->pts = AV_NOPTS_VALUE;
    packet->dts = AV_NOPTS_VALUE;
  } else {
    m_lastDecodeTime = Bounded(packet->dts);
    m_packetsSince = 0;
  }
}

void PictureClock::Stamp(AVFrame* picture, const AVCodecContext& codec) {
  const std::int64_t length = picture->pkt_duration > 0 ? std::min(picture->pkt_duration, kLongest)
                                                        : Length(codec, picture->repeat_pict);
  // Some writers store the time of decoding in the place of the other one.
  const bool hasShowTimes = m_storesShowTimes && (m_showsOutOfOrder || codec.has_b_frames <= 0);
  std::int64_t time = m_end;
  if (hasShowTimes) {
    if (picture->pts != AV_NOPTS_VALUE) time = Bounded(picture->pts);
  } else if (picture->pkt_dts != AV_NOPTS_VALUE) {
    // The time of the packet that made the decoder yield the picture, so many pictures later.
    time = Bounded(Bounded(picture->pkt_dts) - std::max(codec.has_b_frames, 0) * length);
  }
  picture->pts = time;
  picture->pkt_duration = length;
  if (time == AV_NOPTS_VALUE) {
    m_untimedLength = Bounded(m_untimedLength + length);
  } else {
    m_end = Bounded(time + length);
  }
}

}  // namespace zel::kernaldec
