#include "platform/kernaldec/PictureClock.h"

#include <algorithm>

namespace zel::kernaldec {
namespace {

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
  m_doubts = false;
  m_end = AV_NOPTS_VALUE;
  m_lastDecodeTime = AV_NOPTS_VALUE;
}

std::int64_t PictureClock::Length(const AVCodecContext& codec, int repeatedFields) const {
  // Where the container tells no times, FFmpeg estimates its rate. The codec knows it.
  const bool isCounted = m_storesShowTimes || !m_storesDecodeTimes;
  const AVRational rate = isCounted && IsPositive(codec.framerate) ? codec.framerate : m_rate;
  const int fields = 2 + std::clamp(repeatedFields, 0, 4);
  const std::int64_t length = av_rescale_q(fields, av_inv_q(av_mul_q(rate, {2, 1})), m_base);
  return std::clamp<std::int64_t>(length, 1, kFarthest);
}

void PictureClock::Check(AVPacket* packet, const AVCodecContext& codec) {
  m_storesShowTimes = m_storesShowTimes || packet->pts != AV_NOPTS_VALUE;
  m_storesDecodeTimes = m_storesDecodeTimes || packet->dts != AV_NOPTS_VALUE;
  ++m_packetsSince;
  if (packet->dts == AV_NOPTS_VALUE) {
    m_hasGaps = m_hasGaps || m_storesDecodeTimes;
    return;
  }
  // Where the start code of a picture lies across the border of two blocks, FFmpeg's parser gives
  // it the time of the second block, which is the next picture's. A real gap shows itself twice.
  const bool couldCount = m_hasGaps && !m_doubts && m_lastDecodeTime != AV_NOPTS_VALUE;
  m_doubts = false;
  if (couldCount) {
    const auto length = static_cast<long double>(Length(codec, 0));
    const long double late = static_cast<long double>(Bounded(packet->dts) - m_lastDecodeTime) -
                             length * static_cast<long double>(m_packetsSince);
    m_doubts = late > length / 2 && late < length * 3 / 2;
  }
  if (m_doubts) {
    packet->pts = AV_NOPTS_VALUE;
    packet->dts = AV_NOPTS_VALUE;
  } else {
    m_lastDecodeTime = Bounded(packet->dts);
    m_packetsSince = 0;
  }
}

void PictureClock::Stamp(AVFrame* picture, const AVCodecContext& codec) {
  const std::int64_t length = picture->pkt_duration > 0 ? Bounded(picture->pkt_duration)
                                                        : Length(codec, picture->repeat_pict);
  std::int64_t time = m_end;
  if (picture->pts != AV_NOPTS_VALUE) {
    // Where stored times run backwards, FFmpeg's best effort is better.
    time = Bounded(picture->best_effort_timestamp);
  } else if (!m_storesShowTimes && picture->pkt_dts != AV_NOPTS_VALUE) {
    // The time of the packet that made the decoder yield the picture, so many pictures later.
    time = Bounded(picture->pkt_dts) - std::max(codec.has_b_frames, 0) * length;
  }
  picture->pts = time;
  picture->pkt_duration = length;
  m_end = time == AV_NOPTS_VALUE ? time : Bounded(time + length);
}

}  // namespace zel::kernaldec
