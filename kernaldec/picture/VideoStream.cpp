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
    : file_(std::move(file)),
      index_(index),
      program_(program),
      isBlocks_(file_->IsFormat("mpeg") || file_->IsFormat("mpegts")),
      clock_(file_->format(), *file_->stream(index), isBlocks_),
      packet_(av_packet_alloc()),
      frame_(av_frame_alloc()),
      next_(av_frame_alloc()),
      scaled_(av_frame_alloc()),
      sample_(MakeComponent<CZelSample>(AV_STREAM_VIDEO, FRAME_DATA_DECODED)) {
  if (packet_ == nullptr || frame_ == nullptr || next_ == nullptr || scaled_ == nullptr) {
    throw std::bad_alloc();
  }
}

bool VideoStream::Start() {
  if (!Reopen()) return false;
  LookAhead();
  hasNext_ = DecodeFrame(next_.get(), true);
  if (!hasNext_) return false;
  if (next_->pts == AV_NOPTS_VALUE) {
    for (int i = 0; i < kLookAhead && !clock_.StoresTimes(); ++i) {
      if (ReadPacket(packet_.get()) < 0) break;
      clock_.Check(packet_.get(), *codec_);
      av_packet_unref(packet_.get());
    }
    if (clock_.StoresTimes()) {
      firstTime_ = FindFirstTime();
    } else if (IsIntraOnly(codec_->codec_id)) {
      // FFmpeg's counting of packets holds after a seek as well.
      flags_ = 0;
    }
    if (!ReadFromBeginning()) return false;
  }
  startTicks_ = next_->pts;
  state_ = State::kBeforeFirst;
  return true;
}

bool VideoStream::Reopen() {
  state_ = State::kEnded;
  hasNext_ = false;
  std::unique_ptr<media::MediaFile> input = media::MediaFile::Open(file_->path(), flags_);
  if (input == nullptr) return false;
  const auto count = static_cast<int>(input->format()->nb_streams);
  if (index_ >= count) return false;
  for (int i = 0; i < count; ++i) {
    input->stream(i)->discard = i == index_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  const AVStream& stream = *input->stream(index_);
  if (av_cmp_q(stream.time_base, TimeBase()) != 0) return false;  // Another file by now.
  media::CodecContext codec = media::OpenDecoder(stream);
  if (codec == nullptr) return false;
  ahead_.clear();
  codec_ = std::move(codec);
  input_ = std::move(input);
  inputEnded_ = false;
  awaitsKey_ = false;
  doubtsEnd_ = false;
  clock_.Lose();
  return true;
}

std::int64_t VideoStream::FindFirstTime() {
  if (!Reopen()) return 0;
  LookAhead();
  return DecodeFrame(next_.get()) ? media::Bounded(next_->pts - clock_.UntimedLength()) : 0;
}

bool VideoStream::ReadFromBeginning() {
  if (!Reopen()) return false;
  clock_.StartAt(firstTime_);
  LookAhead();
  hasNext_ = DecodeFrame(next_.get());
  state_ = State::kBeforeFirst;
  return hasNext_;
}

HRESULT VideoStream::GetStreamInfo(IStreamInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  return Guarded([&] {
    StreamInfo record = DescribeStream(file_->format(), program_, index_);
    record.startPTS = media::ToTicks(startTicks_, TimeBase());
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
  return file_->stream(index_)->time_base;
}

std::int64_t VideoStream::TimeOf(const AVFrame& frame) const {
  return media::ToTicks(frame.pts - startTicks_, TimeBase());
}

std::int64_t VideoStream::EndOf(const AVFrame& frame) const {
  return media::ToTicks(frame.pts + frame.pkt_duration - startTicks_, TimeBase());
}

int VideoStream::ReadPacket(AVPacket* packet) {
  if (!ahead_.empty()) {
    av_packet_move_ref(packet, ahead_.front().get());
    ahead_.pop_front();
    return 0;
  }
  for (;;) {
    const int result = input_->ReadPacket(packet);
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result < 0 || packet->stream_index == index_) return result;
    av_packet_unref(packet);
  }
}

bool VideoStream::LookAhead() {
  if (!isBlocks_) return true;
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
    isSettled = clock_.Settle(times, isEnd, *codec_);
    if (isEnd) break;
  }
  ahead_ = std::move(packets);
  return isSettled;
}

bool VideoStream::DecodeFrame(AVFrame* frame, bool untimedToo) {
  for (;;) {
    const int result = avcodec_receive_frame(codec_.get(), frame);
    if (result >= 0) {
      clock_.Stamp(frame, *codec_);
      if (untimedToo || frame->pts != AV_NOPTS_VALUE) return true;
      continue;
    }
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result == AVERROR_EOF || inputEnded_) return false;
    if (ReadPacket(packet_.get()) < 0) {
      inputEnded_ = true;
      avcodec_send_packet(codec_.get(), nullptr);
      continue;
    }
    clock_.Check(packet_.get(), *codec_);
    // Some decoders make pictures of anything.
    awaitsKey_ = awaitsKey_ && (packet_->flags & AV_PKT_FLAG_KEY) == 0;
    // A damaged packet costs its own picture only.
    if (!awaitsKey_) avcodec_send_packet(codec_.get(), packet_.get());
    av_packet_unref(packet_.get());
  }
}

bool VideoStream::Next() {
  filled_ = false;
  state_ = State::kEnded;  // Also when decoding throws.
  if (!hasNext_) return false;
  std::swap(frame_, next_);
  hasNext_ = false;
  hasNext_ = DecodeFrame(next_.get());
  if (!hasNext_ && doubtsEnd_) ConfirmEnd();
  state_ = State::kAtFrame;
  return true;
}

void VideoStream::ConfirmEnd() {
  const std::int64_t last = frame_->pts;
  const std::int64_t from = readFrom_;
  bool isEarlier = false;
  for (const std::int64_t margin : kMargins) {
    const std::int64_t place = media::ToTicks(from - startTicks_, TimeBase()) - 1 - margin;
    if (place <= 0) break;
    isEarlier = ReadFrom(place) && next_->pts < from;
    if (isEarlier) break;
  }
  if (!isEarlier && !ReadFromBeginning()) return;
  while (hasNext_ && next_->pts <= last) {
    std::swap(frame_, next_);
    hasNext_ = false;
    hasNext_ = DecodeFrame(next_.get());
  }
  doubtsEnd_ = false;
}

int VideoStream::Forward() {
  // Right after a seek the picture that was sought is still to be read.
  if (std::exchange(sought_, false)) return 0;
  return Guarded([&] { return Next() ? 0 : -1; }, -1, -1);
}

int VideoStream::Backward() {
  return -1;
}

bool VideoStream::DropUntil(std::int64_t target) {
  for (bool more = state_ == State::kAtFrame || Next(); more; more = Next()) {
    if (hasNext_ && TimeOf(*next_) > target) return true;
    // The last picture has no successor to end it.
    if (!hasNext_ && target < EndOf(*frame_)) return true;
  }
  return false;
}

bool VideoStream::ReadFrom(std::int64_t place) {
  state_ = State::kEnded;
  hasNext_ = false;
  ahead_.clear();
  const std::int64_t ticks = startTicks_ + media::Bounded(av_rescale_q_rnd(
                                               place, media::kTickBase, TimeBase(), AV_ROUND_DOWN));
  if (av_seek_frame(input_->format(), index_, ticks, AVSEEK_FLAG_BACKWARD) < 0) return false;
  avcodec_flush_buffers(codec_.get());
  inputEnded_ = false;
  awaitsKey_ = true;
  clock_.Lose();
  if (!LookAhead()) return false;
  hasNext_ = DecodeFrame(next_.get());
  if (!hasNext_) return false;
  readFrom_ = next_->pts;
  // Decoders that reorder may lose the last pictures when they start shortly before them.
  doubtsEnd_ = codec_->has_b_frames > 0;
  state_ = State::kBeforeFirst;
  return true;
}

bool VideoStream::SeekTo(std::int64_t target) {
  filled_ = false;
  const bool isNew = state_ == State::kBeforeFirst;
  if (isNew || (state_ == State::kAtFrame && target >= TimeOf(*frame_))) {
    if (target <= TimeOf(isNew ? *next_ : *frame_) + kTicksPerSecond) return DropUntil(target);
  }
  // Without any times there are no places to find.
  if (!clock_.StoresTimes()) return ReadFromBeginning() && DropUntil(target);
  // Behind the end there is nothing to start at.
  const double length = StreamLength(file_->format(), index_);
  const std::int64_t end = length > 0 ? media::Rounded(length * kTicksPerSecond) : target;
  for (const std::int64_t margin : kMargins) {
    const std::int64_t place = std::min(target, end) - margin;
    if (place <= 0) break;
    if (ReadFrom(place) && TimeOf(*next_) <= target) return DropUntil(target);
  }
  return ReadFromBeginning() && DropUntil(target);
}

double VideoStream::Seek(double seconds, int /*mode*/) {
  if (std::isnan(seconds)) return -1;
  constexpr double latest = 1e9;
  const auto target =
      static_cast<std::int64_t>(std::llround(std::clamp(seconds, 0.0, latest) * kTicksPerSecond));
  sought_ = Guarded([&] { return SeekTo(target); }, false, false);
  return sought_ ? static_cast<double>(TimeOf(*frame_)) / kTicksPerSecond : -1;
}

CZelSample* VideoStream::GetSampleEx() {
  sought_ = false;
  if (state_ != State::kAtFrame) return nullptr;
  if (!filled_) filled_ = Guarded([&] { return FillSample(); }, false, false);
  return filled_ ? sample_.get() : nullptr;
}

CZelSample* VideoStream::GetOriginSampleEx() {
  return GetSampleEx();
}

bool VideoStream::FillSample() {
  const AVFrame& source = *frame_;
  const int width = source.width;
  const int height = source.height;
  if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide) return false;
  const MEDIA_FRAME* held = sample_->GetMediaFrame();
  if (held == nullptr || held->video.yuv.nWidth != width || held->video.yuv.nHeight != height) {
    const HRESULT made = sample_->RemallocYUVFrame(
        static_cast<unsigned long>(width), static_cast<unsigned long>(height), YUV_IMAGE_420P);
    if (made != S_OK) return false;
  }
  MEDIA_FRAME& frame = *sample_->GetMediaFrame();
  MEDIA_FRAME_YUV& yuv = frame.video.yuv;
  const std::size_t luma = static_cast<std::size_t>(width) * height;
  const std::size_t chroma = static_cast<std::size_t>((width + 1) / 2) * ((height + 1) / 2);
  // The sample places the last plane for rounded-down chroma; the packed layout needs it here.
  if (sample_->GetSampleSize() < luma + 2 * chroma) return false;
  yuv.pPlane[2] = yuv.pPlane[1] + chroma;
  const ColourCoding coding = CodingOf(source);
  const bool planar = coding.format == AV_PIX_FMT_YUV420P;
  if (!planar && !Scale(source, coding)) return false;
  const AVFrame& from = planar ? source : *scaled_;
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
  const std::int64_t duration = (hasNext_ ? TimeOf(*next_) : EndOf(source)) - frame.llPTS;
  frame.nDuration = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(duration, 0, std::numeric_limits<std::int32_t>::max()));
  sample_->RefreshSampleInfo();
  sample_->SetDuration(frame.nDuration);
  return true;
}

bool VideoStream::Scale(const AVFrame& source, const ColourCoding& coding) {
  if (scaled_->width != source.width || scaled_->height != source.height) {
    av_frame_unref(scaled_.get());
    scaled_->format = AV_PIX_FMT_YUV420P;
    scaled_->width = source.width;
    scaled_->height = source.height;
    if (av_frame_get_buffer(scaled_.get(), 0) < 0) {
      av_frame_unref(scaled_.get());
      throw std::bad_alloc();
    }
  }
  // The context is kept while size and format stay.
  scaler_.reset(sws_getCachedContext(scaler_.release(), source.width, source.height, coding.format,
                                     source.width, source.height, AV_PIX_FMT_YUV420P, SWS_BICUBIC,
                                     nullptr, nullptr, nullptr));
  if (scaler_ == nullptr) return false;
  // Range and matrix stay what they are; RGB becomes BT.601 with studio range.
  const int* matrix = sws_getCoefficients(SWS_CS_ITU601);
  const int range = coding.fullRange ? 1 : 0;
  constexpr int one = 1 << 16;
  sws_setColorspaceDetails(scaler_.get(), matrix, range, matrix, range, 0, one, one);
  return sws_scale(scaler_.get(), source.data, source.linesize, 0, source.height, scaled_->data,
                   scaled_->linesize) == source.height;
}

HRESULT VideoStream::NotifyStreamMessage(unsigned long /*msg*/, long long /*param*/, void* /*p1*/,
                                         void* /*p2*/) {
  return S_FALSE;
}

}  // namespace zel::kernaldec
