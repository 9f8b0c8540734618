#include "kernaldec/picture/VideoStream.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "kernaldec/file/Describe.h"
#include "media/Ticks.h"
#include "zel/mediainfo/StreamInfo.h"

namespace zel::kernaldec {
namespace {

// Larger pictures do not come from cameras; their byte counts would not fit the frame record.
constexpr int kMaxSide = 16384;
// What a demultiplexer is asked to go further ahead when it lands behind the target, or where
// nothing can be decoded before the end.
constexpr int kMargins[] = {0, 2 * kTicksPerSecond, 10 * kTicksPerSecond, 60 * kTicksPerSecond};
// In how many packets at the beginning a time must be found, if there are any, and after a seek two
// that agree.
constexpr int kLookAhead = 500;

bool IsIntraOnly(AVCodecID id) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(id);
  return codec != nullptr && (codec->props & AV_CODEC_PROP_INTRA_ONLY) != 0;
}

}  // namespace

Ref<VideoStream> VideoStream::Open(std::unique_ptr<media::MediaFile> file, int index,
                                   const Program& program) {
  if (index >= static_cast<int>(file->format()->nb_streams)) return nullptr;
  auto stream = MakeComponent<VideoStream>(std::move(file), index, program);
  if (!stream->Start()) return nullptr;
  return stream;
}

VideoStream::VideoStream(std::unique_ptr<media::MediaFile> file, int index, const Program& program)
    : m_file(std::move(file)),
      m_index(index),
      m_program(program),
      m_isBlocks(m_file->IsFormat("mpeg") || m_file->IsFormat("mpegts")),
      m_clock(m_file->format(), *m_file->stream(index), m_isBlocks),
      m_packet(av_packet_alloc()),
      m_frame(av_frame_alloc()),
      m_next(av_frame_alloc()),
      m_scaled(av_frame_alloc()),
      m_sample(MakeComponent<CZelSample>(AV_STREAM_VIDEO, FRAME_DATA_DECODED)) {
  if (m_packet == nullptr || m_frame == nullptr || m_next == nullptr || m_scaled == nullptr) {
    throw std::bad_alloc();
  }
}

bool VideoStream::Start() {
  if (!Reopen()) return false;
  LookAhead();
  m_hasNext = DecodeFrame(m_next.get(), true);
  if (!m_hasNext) return false;
  if (m_next->pts == AV_NOPTS_VALUE) {
    for (int i = 0; i < kLookAhead && !m_clock.StoresTimes(); ++i) {
      if (ReadPacket(m_packet.get()) < 0) break;
      m_clock.Check(m_packet.get(), *m_codec);
      av_packet_unref(m_packet.get());
    }
    if (m_clock.StoresTimes()) {
      m_firstTime = FindFirstTime();
    } else if (IsIntraOnly(m_codec->codec_id)) {
      // FFmpeg's counting of packets holds after a seek as well.
      m_flags = 0;
    }
    if (!ReadFromBeginning()) return false;
  }
  m_startTicks = m_next->pts;
  m_state = State::kBeforeFirst;
  return true;
}

bool VideoStream::Reopen() {
  m_state = State::kEnded;
  m_hasNext = false;
  std::unique_ptr<media::MediaFile> input = media::MediaFile::Open(m_file->path(), m_flags);
  if (input == nullptr) return false;
  const auto count = static_cast<int>(input->format()->nb_streams);
  if (m_index >= count) return false;
  for (int i = 0; i < count; ++i) {
    input->stream(i)->discard = i == m_index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  const AVStream& stream = *input->stream(m_index);
  if (av_cmp_q(stream.time_base, TimeBase()) != 0) return false;  // Another file by now.
  media::CodecContext codec = media::OpenDecoder(stream);
  if (codec == nullptr) return false;
  m_ahead.clear();
  m_codec = std::move(codec);
  m_input = std::move(input);
  m_inputEnded = false;
  m_awaitsKey = false;
  m_doubtsEnd = false;
  m_clock.Lose();
  return true;
}

std::int64_t VideoStream::FindFirstTime() {
  if (!Reopen()) return 0;
  LookAhead();
  return DecodeFrame(m_next.get()) ? media::Bounded(m_next->pts - m_clock.UntimedLength()) : 0;
}

bool VideoStream::ReadFromBeginning() {
  if (!Reopen()) return false;
  m_clock.StartAt(m_firstTime);
  LookAhead();
  m_hasNext = DecodeFrame(m_next.get());
  m_state = State::kBeforeFirst;
  return m_hasNext;
}

HRESULT VideoStream::GetStreamInfo(IStreamInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  return Guarded([&] {
    StreamInfo record = DescribeStream(m_file->format(), m_program, m_index);
    record.startPTS = media::ToTicks(m_startTicks, TimeBase());
    const auto info = MakeComponent<CStreamInfo>();
    info->SetStreamInfo(&record);
    return scombase::GetInterface(static_cast<IStreamInfo*>(info.get()),
                                  reinterpret_cast<void**>(ppInfo));
  });
}

HRESULT VideoStream::ChangeStream(int index) {
  return index == 0 ? S_OK : E_INVALIDARG;
}

AVRational VideoStream::TimeBase() const {
  return m_file->stream(m_index)->time_base;
}

std::int64_t VideoStream::TimeOf(const AVFrame& frame) const {
  return media::ToTicks(frame.pts - m_startTicks, TimeBase());
}

std::int64_t VideoStream::EndOf(const AVFrame& frame) const {
  return media::ToTicks(frame.pts + frame.pkt_duration - m_startTicks, TimeBase());
}

int VideoStream::ReadPacket(AVPacket* packet) {
  if (!m_ahead.empty()) {
    av_packet_move_ref(packet, m_ahead.front().get());
    m_ahead.pop_front();
    return 0;
  }
  for (;;) {
    const int result = m_input->ReadPacket(packet);
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result < 0 || packet->stream_index == m_index) return result;
    av_packet_unref(packet);
  }
}

bool VideoStream::LookAhead() {
  if (!m_isBlocks) return true;
  std::deque<media::Packet> packets;
  std::vector<std::int64_t> times;
  bool isSettled = false;
  for (int i = 0; i < kLookAhead && !isSettled; ++i) {
    media::Packet packet(av_packet_alloc());
    if (packet == nullptr) throw std::bad_alloc();
    const bool isEnd = ReadPacket(packet.get()) < 0;
    if (!isEnd) {
      times.push_back(packet->dts);
      packets.push_back(std::move(packet));
    }
    isSettled = m_clock.Settle(times, isEnd, *m_codec);
    if (isEnd) break;
  }
  m_ahead = std::move(packets);
  return isSettled;
}

bool VideoStream::DecodeFrame(AVFrame* frame, bool untimedToo) {
  for (;;) {
    const int result = avcodec_receive_frame(m_codec.get(), frame);
    if (result >= 0) {
      m_clock.Stamp(frame, *m_codec);
      if (untimedToo || frame->pts != AV_NOPTS_VALUE) return true;
      continue;
    }
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result == AVERROR_EOF || m_inputEnded) return false;
    if (ReadPacket(m_packet.get()) < 0) {
      m_inputEnded = true;
      avcodec_send_packet(m_codec.get(), nullptr);
      continue;
    }
    m_clock.Check(m_packet.get(), *m_codec);
    // Some decoders make pictures of anything.
    m_awaitsKey = m_awaitsKey && (m_packet->flags & AV_PKT_FLAG_KEY) == 0;
    // A damaged packet costs its own picture only.
    if (!m_awaitsKey) avcodec_send_packet(m_codec.get(), m_packet.get());
    av_packet_unref(m_packet.get());
  }
}

bool VideoStream::Next() {
  m_filled = false;
  m_state = State::kEnded;  // Also when decoding throws.
  if (!m_hasNext) return false;
  std::swap(m_frame, m_next);
  m_hasNext = false;
  m_hasNext = DecodeFrame(m_next.get());
  if (!m_hasNext && m_doubtsEnd) ConfirmEnd();
  m_state = State::kAtFrame;
  return true;
}

void VideoStream::ConfirmEnd() {
  const std::int64_t last = m_frame->pts;
  const std::int64_t from = m_readFrom;
  bool isEarlier = false;
  for (const std::int64_t margin : kMargins) {
    const std::int64_t place = media::ToTicks(from - m_startTicks, TimeBase()) - 1 - margin;
    if (place <= 0) break;
    isEarlier = ReadFrom(place) && m_next->pts < from;
    if (isEarlier) break;
  }
  if (!isEarlier && !ReadFromBeginning()) return;
  while (m_hasNext && m_next->pts <= last) {
    std::swap(m_frame, m_next);
    m_hasNext = false;
    m_hasNext = DecodeFrame(m_next.get());
  }
  m_doubtsEnd = false;
}

int VideoStream::Forward() {
  // Right after a seek the picture that was sought is still to be read.
  if (std::exchange(m_sought, false)) return 0;
  return Guarded([&] { return Next() ? 0 : -1; }, -1, -1);
}

int VideoStream::Backward() {
  return -1;
}

bool VideoStream::DropUntil(std::int64_t target) {
  for (bool more = m_state == State::kAtFrame || Next(); more; more = Next()) {
    if (m_hasNext && TimeOf(*m_next) > target) return true;
    // The last picture has no successor to end it.
    if (!m_hasNext && target < EndOf(*m_frame)) return true;
  }
  return false;
}

bool VideoStream::ReadFrom(std::int64_t place) {
  m_state = State::kEnded;
  m_hasNext = false;
  m_ahead.clear();
  const std::int64_t ticks =
      m_startTicks +
      media::Bounded(av_rescale_q_rnd(place, media::kTickBase, TimeBase(), AV_ROUND_DOWN));
  if (av_seek_frame(m_input->format(), m_index, ticks, AVSEEK_FLAG_BACKWARD) < 0) return false;
  avcodec_flush_buffers(m_codec.get());
  m_inputEnded = false;
  m_awaitsKey = true;
  m_clock.Lose();
  if (!LookAhead()) return false;
  m_hasNext = DecodeFrame(m_next.get());
  if (!m_hasNext) return false;
  m_readFrom = m_next->pts;
  // Decoders that reorder may lose the last pictures when they start shortly before them.
  m_doubtsEnd = m_codec->has_b_frames > 0;
  m_state = State::kBeforeFirst;
  return true;
}

bool VideoStream::SeekTo(std::int64_t target) {
  m_filled = false;
  const bool isNew = m_state == State::kBeforeFirst;
  if (isNew || (m_state == State::kAtFrame && target >= TimeOf(*m_frame))) {
    if (target <= TimeOf(isNew ? *m_next : *m_frame) + kTicksPerSecond) return DropUntil(target);
  }
  // Without any times there are no places to find.
  if (!m_clock.StoresTimes()) return ReadFromBeginning() && DropUntil(target);
  // Behind the end there is nothing to start at.
  const double length = StreamLength(m_file->format(), m_index);
  const std::int64_t end = length > 0 ? media::Rounded(length * kTicksPerSecond) : target;
  for (const std::int64_t margin : kMargins) {
    const std::int64_t place = std::min(target, end) - margin;
    if (place <= 0) break;
    if (ReadFrom(place) && TimeOf(*m_next) <= target) return DropUntil(target);
  }
  return ReadFromBeginning() && DropUntil(target);
}

double VideoStream::Seek(double seconds, int /*mode*/) {
  if (std::isnan(seconds)) return -1;
  constexpr double latest = 1e9;
  const auto target =
      static_cast<std::int64_t>(std::llround(std::clamp(seconds, 0.0, latest) * kTicksPerSecond));
  m_sought = Guarded([&] { return SeekTo(target); }, false, false);
  return m_sought ? static_cast<double>(TimeOf(*m_frame)) / kTicksPerSecond : -1;
}

CZelSample* VideoStream::GetSampleEx() {
  m_sought = false;
  if (m_state != State::kAtFrame) return nullptr;
  if (!m_filled) m_filled = Guarded([&] { return FillSample(); }, false, false);
  return m_filled ? m_sample.get() : nullptr;
}

CZelSample* VideoStream::GetOriginSampleEx() {
  return GetSampleEx();
}

bool VideoStream::FillSample() {
  const AVFrame& source = *m_frame;
  const int width = source.width;
  const int height = source.height;
  if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide) return false;
  const MEDIA_FRAME* held = m_sample->GetMediaFrame();
  if (held == nullptr || held->video.yuv.nWidth != width || held->video.yuv.nHeight != height) {
    const HRESULT made = m_sample->RemallocYUVFrame(
        static_cast<unsigned long>(width), static_cast<unsigned long>(height), YUV_IMAGE_420P);
    if (made != S_OK) return false;
  }
  MEDIA_FRAME& frame = *m_sample->GetMediaFrame();
  MEDIA_FRAME_YUV& yuv = frame.video.yuv;
  const std::size_t luma = static_cast<std::size_t>(width) * height;
  const std::size_t chroma = static_cast<std::size_t>((width + 1) / 2) * ((height + 1) / 2);
  // The sample places the last plane for rounded-down chroma; the packed layout needs it here.
  if (m_sample->GetSampleSize() < luma + 2 * chroma) return false;
  yuv.pPlane[2] = yuv.pPlane[1] + chroma;
  const ColourCoding coding = CodingOf(source);
  const bool planar = coding.format == AV_PIX_FMT_YUV420P;
  if (!planar && !Scale(source, coding)) return false;
  const AVFrame& from = planar ? source : *m_scaled;
  for (int plane = 0; plane < 3; ++plane) {
    const int rows = plane == 0 ? height : (height + 1) / 2;
    for (int row = 0; row < rows; ++row) {
      std::memcpy(yuv.pPlane[plane] + static_cast<std::size_t>(row) * yuv.nStride[plane],
                  from.data[plane] + static_cast<std::ptrdiff_t>(row) * from.linesize[plane],
                  static_cast<std::size_t>(yuv.nStride[plane]));
    }
  }
  const StudioColours colours(coding);
  if (!colours.IsIdentity()) colours.Apply(yuv.pPlane, yuv.nStride, width, height);
  frame.bKeyFrame = source.key_frame;
  frame.llPTS = TimeOf(source);
  frame.llDTS = frame.llPTS;
  const std::int64_t duration = (m_hasNext ? TimeOf(*m_next) : EndOf(source)) - frame.llPTS;
  frame.nDuration = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(duration, 0, std::numeric_limits<std::int32_t>::max()));
  m_sample->RefreshSampleInfo();
  m_sample->SetDuration(frame.nDuration);
  return true;
}

bool VideoStream::Scale(const AVFrame& source, const ColourCoding& coding) {
  if (m_scaled->width != source.width || m_scaled->height != source.height) {
    av_frame_unref(m_scaled.get());
    m_scaled->format = AV_PIX_FMT_YUV420P;
    m_scaled->width = source.width;
    m_scaled->height = source.height;
    if (av_frame_get_buffer(m_scaled.get(), 0) < 0) {
      av_frame_unref(m_scaled.get());
      throw std::bad_alloc();
    }
  }
  // The context is kept while size and format stay.
  m_scaler.reset(sws_getCachedContext(m_scaler.release(), source.width, source.height,
                                      coding.format, source.width, source.height,
                                      AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (m_scaler == nullptr) return false;
  // Range and matrix stay what they are; RGB becomes BT.601 with studio range.
  const int* matrix = sws_getCoefficients(SWS_CS_ITU601);
  const int range = coding.fullRange ? 1 : 0;
  constexpr int one = 1 << 16;
  sws_setColorspaceDetails(m_scaler.get(), matrix, range, matrix, range, 0, one, one);
  return sws_scale(m_scaler.get(), source.data, source.linesize, 0, source.height, m_scaled->data,
                   m_scaled->linesize) == source.height;
}

HRESULT VideoStream::NotifyStreamMessage(unsigned long /*msg*/, long long /*param*/, void* /*p1*/,
                                         void* /*p2*/) {
  return S_FALSE;
}

}  // namespace zel::kernaldec
