#include "kernaldec/picture/PictureReader.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "media/StreamLength.h"
#include "media/Ticks.h"

namespace zel::kernaldec {
namespace {

// A seek that lands behind its target, or where nothing can be decoded, is repeated this much
// earlier.
constexpr std::int64_t kMargins[] = {0, 2 * kTicksPerSecond, 10 * kTicksPerSecond,
                                     60 * kTicksPerSecond};
// Reading on is cheaper than a seek over distances up to this.
constexpr std::int64_t kReadOn = kTicksPerSecond;
// Packets that are searched for a stored time at the start, or for times that agree after a seek.
constexpr int kLookAhead = 500;

bool IsIntraOnly(AVCodecID id) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(id);
  return codec != nullptr && (codec->props & AV_CODEC_PROP_INTRA_ONLY) != 0;
}

}  // namespace

std::unique_ptr<PictureReader> PictureReader::Open(std::unique_ptr<media::MediaFile> file,
                                                   int index) {
  if (index >= static_cast<int>(file->format()->nb_streams)) return nullptr;
  std::unique_ptr<PictureReader> reader(new PictureReader(std::move(file), index));
  if (!reader->Start()) return nullptr;
  return reader;
}

PictureReader::PictureReader(std::unique_ptr<media::MediaFile> file, int index)
    : file_(std::move(file)),
      index_(index),
      isBlocks_(file_->IsFormat("mpeg") || file_->IsFormat("mpegts")),
      clock_(file_->format(), *file_->stream(index), isBlocks_),
      packet_(media::NotNull(av_packet_alloc())),
      frame_(media::NotNull(av_frame_alloc())),
      next_(media::NotNull(av_frame_alloc())) {}

bool PictureReader::Start() {
  if (!Reopen()) return false;
  LookAhead();
  hasNext_ = Decode(next_.get());
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
      // FFmpeg numbers the packets, also after a seek.
      flags_ = 0;
    }
    if (!ReadFromBeginning()) return false;
  }
  startTime_ = next_->pts;
  state_ = State::kBeforeFirst;
  return true;
}

/// Opens the file and the decoder anew.
/// @return false, with input and decoder as before, when the file cannot be opened or has changed
bool PictureReader::Reopen() {
  state_ = State::kEnded;
  hasNext_ = false;
  std::unique_ptr<media::MediaFile> input = media::MediaFile::Open(file_->path(), flags_);
  if (input == nullptr || !input->SelectStream(index_)) return false;
  const AVStream& reopened = *input->stream(index_);
  if (av_cmp_q(reopened.time_base, stream()->time_base) != 0) return false;
  media::CodecContext codec = media::OpenDecoder(reopened);
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

/// The first picture's time in the time base, counted back from the first stored time.
std::int64_t PictureReader::FindFirstTime() {
  if (!Reopen()) return 0;
  LookAhead();
  return DecodeTimed(next_.get()) ? media::Bounded(next_->pts - clock_.untimedLength()) : 0;
}

/// Makes the stream's first picture the next one.
bool PictureReader::ReadFromBeginning() {
  if (!Reopen()) return false;
  clock_.StartAt(firstTime_);
  LookAhead();
  hasNext_ = DecodeTimed(next_.get());
  state_ = State::kBeforeFirst;
  return hasNext_;
}

/// Seeks to a key picture at or before `place`, as far as the container can tell, and makes it the
/// next one.
/// @return false when nothing can be decoded from there on
bool PictureReader::ReadFrom(std::int64_t place) {
  state_ = State::kEnded;
  hasNext_ = false;
  ahead_.clear();
  const std::int64_t since =
      av_rescale_q_rnd(place, media::kTickBase, stream()->time_base, AV_ROUND_DOWN);
  const std::int64_t target = startTime_ + media::Bounded(since);
  if (av_seek_frame(input_->format(), index_, target, AVSEEK_FLAG_BACKWARD) < 0) return false;
  avcodec_flush_buffers(codec_.get());
  inputEnded_ = false;
  awaitsKey_ = true;
  clock_.Lose();
  if (!LookAhead()) return false;
  hasNext_ = DecodeTimed(next_.get());
  if (!hasNext_) return false;
  readFrom_ = next_->pts;
  // A decoder that reorders may lose the last pictures if it starts shortly before them.
  doubtsEnd_ = codec_->has_b_frames > 0;
  state_ = State::kBeforeFirst;
  return true;
}

/// Reads packets until the clock knows which stored times to believe.
/// @return false when it found none to believe
bool PictureReader::LookAhead() {
  if (!isBlocks_) return true;
  std::deque<media::Packet> packets;
  std::vector<std::int64_t> times;
  bool isSettled = false;
  for (int i = 0; i < kLookAhead && !isSettled; ++i) {
    media::Packet packet(media::NotNull(av_packet_alloc()));
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

/// Reads this stream's next packet.
/// @return 0, or FFmpeg's error
int PictureReader::ReadPacket(AVPacket* packet) {
  if (ahead_.empty()) return input_->ReadPacketOf(index_, packet);
  av_packet_move_ref(packet, ahead_.front().get());
  ahead_.pop_front();
  return 0;
}

/// Sends the decoder one packet, or, at the end of the input, the request to empty itself.
void PictureReader::FeedDecoder() {
  if (ReadPacket(packet_.get()) < 0) {
    inputEnded_ = true;
    avcodec_send_packet(codec_.get(), nullptr);
    return;
  }
  clock_.Check(packet_.get(), *codec_);
  // Some decoders output pictures even if they never saw a key picture.
  awaitsKey_ = awaitsKey_ && (packet_->flags & AV_PKT_FLAG_KEY) == 0;
  // An error is ignored: a damaged packet costs its own picture only.
  if (!awaitsKey_) avcodec_send_packet(codec_.get(), packet_.get());
  av_packet_unref(packet_.get());
}

/// Decodes the next picture. Its time may be unknown.
/// @return false at the end
bool PictureReader::Decode(AVFrame* picture) {
  for (;;) {
    const int result = avcodec_receive_frame(codec_.get(), picture);
    if (result >= 0) {
      clock_.Stamp(picture, *codec_);
      return true;
    }
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result == AVERROR_EOF || inputEnded_) return false;
    FeedDecoder();
  }
}

/// Decodes the next picture whose time is known.
bool PictureReader::DecodeTimed(AVFrame* picture) {
  while (Decode(picture)) {
    if (picture->pts != AV_NOPTS_VALUE) return true;
  }
  return false;
}

/// Makes the next picture the current one and decodes the one after it.
void PictureReader::Advance() {
  std::swap(frame_, next_);
  hasNext_ = false;  // Decoding may throw.
  hasNext_ = DecodeTimed(next_.get());
}

bool PictureReader::Next() {
  state_ = State::kEnded;  // Decoding may throw.
  if (!hasNext_) return false;
  Advance();
  if (!hasNext_ && doubtsEnd_) ConfirmEnd();
  state_ = State::kAtPicture;
  return true;
}

/// Decodes up to the current picture once more, from an earlier place, and finds what may follow
/// it.
void PictureReader::ConfirmEnd() {
  const std::int64_t last = frame_->pts;
  const std::int64_t from = readFrom_;
  bool isEarlier = false;
  for (const std::int64_t margin : kMargins) {
    const std::int64_t place = media::ToTicks(from - startTime_, stream()->time_base) - 1 - margin;
    if (place <= 0) break;
    isEarlier = ReadFrom(place) && next_->pts < from;
    if (isEarlier) break;
  }
  if (!isEarlier && !ReadFromBeginning()) return;
  while (hasNext_ && next_->pts <= last) Advance();
  doubtsEnd_ = false;
}

bool PictureReader::Seek(std::int64_t time) {
  if (IsShortlyBefore(time)) return DropUntil(time);
  // Where the file stores no times, the demultiplexer has none to seek by.
  const bool found = clock_.StoresTimes() && SeekByTime(time);
  return (found || ReadFromBeginning()) && DropUntil(time);
}

/// True when the reader stands close enough before `time` to read on.
bool PictureReader::IsShortlyBefore(std::int64_t time) const {
  switch (state_) {
    case State::kBeforeFirst:
      return time <= TimeOf(*next_) + kReadOn;
    case State::kAtPicture:
      return time >= TimeOf(*frame_) && time <= TimeOf(*frame_) + kReadOn;
    default:
      return false;
  }
}

/// Makes a picture that is shown at or before `time` the next one.
/// @return false when only the start of the file is early enough; the position is then undefined
bool PictureReader::SeekByTime(std::int64_t time) {
  // A seek past the end finds nothing to decode.
  const double length = media::StreamLength(file_->format(), index_);
  const std::int64_t end = length > 0 ? media::Rounded(length * kTicksPerSecond) : time;
  for (const std::int64_t margin : kMargins) {
    const std::int64_t place = std::min(time, end) - margin;
    if (place <= 0) break;
    if (ReadFrom(place) && TimeOf(*next_) <= time) return true;
  }
  return false;
}

/// Reads on to the picture that is shown at `time`.
bool PictureReader::DropUntil(std::int64_t time) {
  for (bool more = state_ == State::kAtPicture || Next(); more; more = Next()) {
    if (hasNext_ && TimeOf(*next_) > time) return true;
    // The last picture ends by its own length.
    if (!hasNext_ && time < EndOf(*frame_)) return true;
  }
  return false;
}

std::int64_t PictureReader::startPts() const {
  return media::ToTicks(startTime_, stream()->time_base);
}

std::int64_t PictureReader::TimeOf(const AVFrame& picture) const {
  return media::ToTicks(picture.pts - startTime_, stream()->time_base);
}

std::int64_t PictureReader::EndOf(const AVFrame& picture) const {
  return media::ToTicks(picture.pts + picture.pkt_duration - startTime_, stream()->time_base);
}

}  // namespace zel::kernaldec
