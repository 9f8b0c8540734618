#include "kernaldec/sound/AudioReader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "kernaldec/DecodedAudio.h"
#include "media/Completeness.h"
#include "media/StreamLength.h"
#include "media/Ticks.h"

namespace zel::kernaldec {
namespace {

// Reading on is cheaper than a seek over distances up to this.
constexpr double kReadOnSeconds = 1.0;
// A decoder with memory (overlapping blocks, a bit reservoir) starts this much before the target.
constexpr double kPrerollSeconds = 0.3;
// Beyond any sound; what is sought later is past the end, too.
constexpr double kLatestSeconds = 1e9;

std::string Seconds(long double seconds) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.3Lf s", seconds);
  return text;
}

// Containers in which a seek finds the same packets with the same time stamps as reading from the
// start.
bool HasReliableIndex(const media::MediaFile& file, AVCodecID codec) {
  for (const char* name :
       {"wav", "w64", "aiff", "au", "caf", "flac", "mp4", "matroska", "mpegts", "aac", "mp3"}) {
    if (file.IsFormat(name)) return true;
  }
  return file.IsFormat("ogg") && (codec == AV_CODEC_ID_VORBIS || codec == AV_CODEC_ID_OPUS);
}

// Bare elementary streams. FFmpeg makes up their time stamps by adding rounded durations: they
// drift.
bool HasMadeUpStamps(const media::MediaFile& file) {
  for (const char* name : {"ac3", "eac3", "dts", "mlp", "truehd"}) {
    if (file.IsFormat(name)) return true;
  }
  return false;
}

// Codecs whose frames all have the same number of samples.
bool HasEqualFrames(const AVCodecParameters& codec) {
  switch (codec.codec_id) {
    case AV_CODEC_ID_AAC:
    case AV_CODEC_ID_AC3:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_OPUS:
      return true;
    case AV_CODEC_ID_FLAC:
      // The stream header holds the sizes of the smallest and of the largest block.
      return codec.extradata_size >= 4 && std::memcmp(codec.extradata, codec.extradata + 2, 2) == 0;
    default:
      return false;
  }
}

bool IsMpegAudio(AVCodecID id) {
  return id == AV_CODEC_ID_MP1 || id == AV_CODEC_ID_MP2 || id == AV_CODEC_ID_MP3;
}

}  // namespace

std::unique_ptr<AudioReader> AudioReader::Open(std::unique_ptr<media::MediaFile> file, int index) {
  std::unique_ptr<AudioReader> reader(new AudioReader);
  reader->index_ = index;
  reader->packet_.reset(media::NotNull(av_packet_alloc()));
  reader->frame_.reset(media::NotNull(av_frame_alloc()));
  if (!reader->Start(std::move(file))) return nullptr;
  return reader;
}

/// Reads `file` from its start.
/// @return false when nothing can be decoded; the reader has ended then
bool AudioReader::Start(std::unique_ptr<media::MediaFile> file) {
  state_ = State::kEnded;
  if (!file->SelectStream(index_)) return false;
  media::CodecContext codec = media::OpenDecoder(*file->stream(index_));
  if (codec == nullptr) return false;
  codec_ = std::move(codec);
  file_ = std::move(file);
  madeUpStamps_ = HasMadeUpStamps(*file_);
  shortReads_ = media::MarksShortReads(*file_);
  inputEnded_ = false;
  lostPackets_ = 0;
  holes_ = 0;
  holesAreTooLong_ = false;
  clock_ = {};
  fromStart_ = true;
  framesRead_ = 0;
  gridPhase_ = 0;
  gridStep_ = 0;
  if (!DecodeFrame()) return false;
  state_ = State::kBeforeFirst;
  return true;
}

bool AudioReader::Reopen() {
  std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(file_->path());
  if (file != nullptr && Start(std::move(file))) return true;
  state_ = State::kEnded;
  Fail("the file cannot be read a second time");
  return false;
}

std::int64_t AudioReader::startPts() const {
  return media::ToTicks(startStamp_, stream()->time_base);
}

std::int64_t AudioReader::timeStamp() const {
  // Count in whole samples, so that only one division is rounded.
  return media::Rounded(clock_.offset * kTicksPerSecond) +
         media::ToTicks(position_ + first_, {1, clock_.rate});
}

bool AudioReader::Next() {
  const State before = state_;
  if (before == State::kEnded) return false;
  state_ = State::kEnded;  // Also when decoding throws.
  if (before == State::kBeforeFirst || DecodeFrame()) {
    state_ = State::kAtFrame;
    return true;
  }
  CheckEnd();
  return false;
}

bool AudioReader::Seek(double seconds) {
  seconds = std::clamp(seconds, 0.0, kLatestSeconds);
  const bool hasFrame = state_ != State::kEnded;
  const bool ahead = hasFrame && seconds >= static_cast<double>(FrameTime());
  if (ahead && seconds <= static_cast<double>(FrameTime()) + kReadOnSeconds) {
    return DropUntil(seconds);
  }
  if (SeeksExactly() && SeekByIndex(seconds)) return DropUntil(seconds);
  if (!ahead || !fromStart_) {
    if (!Reopen()) return false;
  }
  return DropUntil(seconds);
}

/// Seeks to a frame at or before `seconds` whose place in time is exact.
/// @return false when only the start of the file will do; the position is then undefined
bool AudioReader::SeekByIndex(double seconds) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(codec_->codec_id);
  const bool lossless = codec != nullptr && (codec->props & AV_CODEC_PROP_LOSSY) == 0;
  double settle = lossless ? 0.0 : kPrerollSeconds;
  const int declared = stream()->codecpar->seek_preroll;
  if (declared > 0 && firstRate_ > 0) {
    settle = std::max(settle, static_cast<double>(declared) / firstRate_);
  }
  // A seek may land behind its target. It is then repeated some seconds earlier.
  for (const double margin : {0.0, 2.0, 10.0}) {
    const double from = seconds - settle - margin;
    if (from <= 0) break;
    const double unit = av_q2d(stream()->time_base);
    const std::int64_t stamp = startStamp_ + media::Rounded(std::floor(from / unit));
    if (av_seek_frame(file_->format(), index_, stamp, AVSEEK_FLAG_BACKWARD) < 0) break;
    avcodec_flush_buffers(codec_.get());
    fromStart_ = false;
    inputEnded_ = false;
    lostPackets_ = 0;
    holes_ = 0;
    holesAreTooLong_ = false;
    clock_ = {};
    if (!DecodeFrame()) break;
    state_ = State::kBeforeFirst;
    if (static_cast<double>(FrameTime()) <= seconds) return true;
  }
  fromStart_ = false;
  return false;
}

/// Reads on until `seconds` lies in the current frame.
bool AudioReader::DropUntil(double seconds) {
  for (bool more = state_ == State::kAtFrame || Next(); more; more = Next()) {
    const long double ahead = (static_cast<long double>(seconds) - FrameTime()) * clock_.rate;
    const auto size = static_cast<long double>(frame_->nb_samples);
    first_ = static_cast<int>(std::llround(std::clamp(ahead, 0.0L, size)));
    if (first_ < frame_->nb_samples) return true;
  }
  return false;
}

/// Decodes the next frame that has samples and a place in time into frame_.
/// @return false at the end of the input, or when reading has failed.
bool AudioReader::DecodeFrame() {
  while (ReceiveFrame()) {
    if (frame_->nb_samples > 0 && frame_->sample_rate > 0 && Place()) return !holesAreTooLong_;
  }
  return false;
}

bool AudioReader::ReceiveFrame() {
  for (;;) {
    const int result = avcodec_receive_frame(codec_.get(), frame_.get());
    if (result >= 0) return true;
    if (result == AVERROR_EOF) return false;
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result != AVERROR(EAGAIN)) {
      NotePacketLost();
      // A decoder that fails while it empties itself may fail forever.
      if (inputEnded_) return false;
    }
    if (!FeedDecoder()) return false;
  }
}

/// Sends the decoder one packet, or, once the input has ended, the request to empty itself.
bool AudioReader::FeedDecoder() {
  if (inputEnded_) return false;
  const int result = file_->ReadPacketOf(index_, packet_.get());
  if (result < 0) {
    inputEnded_ = true;
    if (file_->readError() != 0) {
      Fail("reading failed: " + media::ErrorText(AVERROR(file_->readError())));
    } else if (result != AVERROR_EOF) {
      // The code itself says nothing: demultiplexers report damage as, say, an input/output error.
      Fail("the file is cut off or damaged");
    }
    avcodec_send_packet(codec_.get(), nullptr);
    return true;
  }
  const bool corrupt = !shortReads_ && (packet_->flags & AV_PKT_FLAG_CORRUPT) != 0;
  const int sent = avcodec_send_packet(codec_.get(), packet_.get());
  av_packet_unref(packet_.get());
  if (sent == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (corrupt || (sent < 0 && sent != AVERROR(EAGAIN) && sent != AVERROR_EOF)) NotePacketLost();
  return true;
}

/// Finds the frame's place in time.
/// @return false when it has none: the first frames after a seek may come without time stamps
bool AudioReader::Place() {
  const std::int64_t found =
      frame_->pts != AV_NOPTS_VALUE ? frame_->pts : frame_->best_effort_timestamp;
  const std::int64_t stamp = media::Bounded(found);
  const bool isFirst = fromStart_ && framesRead_ == 0;
  const bool isStamped = found != AV_NOPTS_VALUE && (isFirst || !madeUpStamps_);
  if (isFirst) {
    BeginStream(isStamped, stamp);
  } else if (clock_.known) {
    const int rate = frame_->sample_rate;
    if (rate != clock_.rate) clock_ = {true, rate, clock_.time(), 0};
  } else {
    if (!isStamped) return false;
    RestartClock(stamp);
  }
  if (isStamped && !isFirst) FollowStamp(stamp);

  if (fromStart_ && framesRead_ == 0) gridPhase_ = frame_->nb_samples;
  if (fromStart_ && framesRead_ == 1) gridStep_ = frame_->nb_samples;
  ++framesRead_;
  if (lostPackets_ > 0) Fail("damaged data at " + Seconds(clock_.time()));
  lostPackets_ = 0;
  position_ = clock_.samples;
  clock_.samples += frame_->nb_samples;
  first_ = 0;
  return true;
}

/// Starts the clock with the stream's first frame.
void AudioReader::BeginStream(bool isStamped, std::int64_t stamp) {
  const std::int64_t declared = stream()->start_time;
  startStamp_ = isStamped ? stamp : declared != AV_NOPTS_VALUE ? media::Bounded(declared) : 0;
  firstRate_ = frame_->sample_rate;
  NoteFormat();
  clock_ = {true, firstRate_, 0, 0};
}

/// Keeps what the first frame tells of the whole sound.
void AudioReader::NoteFormat() {
  const AVChannelLayout& layout = frame_->ch_layout;
  firstChannels_ = layout.nb_channels;
  firstSpeakers_ = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
  const auto format = static_cast<AVSampleFormat>(frame_->format);
  const AVSampleFormat packed = av_get_packed_sample_fmt(format);
  sourceIsFloat_ = packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
  const AVCodecDescriptor* codec = avcodec_descriptor_get(codec_->codec_id);
  // Only lossless codecs store samples. DTS is lossless only if it decodes to integers.
  const bool isLossless = codec != nullptr && (codec->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
                          !(codec_->codec_id == AV_CODEC_ID_DTS && sourceIsFloat_);
  sourceIsFloat_ = sourceIsFloat_ && isLossless;
  const int raw = codec_->bits_per_raw_sample;
  sourceBits_ = !isLossless ? 0 : raw > 0 ? raw : 8 * av_get_bytes_per_sample(format);
}

/// Starts the clock with the first frame after a seek.
void AudioReader::RestartClock(std::int64_t stamp) {
  clock_ = {true, frame_->sample_rate, 0, 0};
  const long double time = ContainerTime(stamp);
  if (clock_.rate == firstRate_) {
    clock_.samples = Landing(time);
  } else {
    clock_.offset = time;
  }
}

/// Moves the clock to the frame's time stamp when the two disagree by more than the stamp's error.
void AudioReader::FollowStamp(std::int64_t stamp) {
  // Two stamps, each rounded to a tick, may differ by one tick. Demultiplexers that derive stamps
  // from byte positions may be off by another sample.
  const long double tolerance =
      1.5L * std::max<long double>(av_q2d(stream()->time_base), 1.0L / clock_.rate);
  const long double time = ContainerTime(stamp);
  if (std::fabs(time - clock_.time()) <= tolerance) return;
  NoteGap(time - clock_.time());
  clock_.samples = media::Rounded((time - clock_.offset) * clock_.rate);
}

/// The first sample of a frame with time stamp `time`.
std::int64_t AudioReader::Landing(long double time) const {
  const long double samples = time * firstRate_;
  const long double unit = static_cast<long double>(av_q2d(stream()->time_base)) * firstRate_;
  if (unit > 1 && gridStep_ > 0) {
    const std::int64_t onGrid =
        gridPhase_ + gridStep_ * media::Rounded((samples - gridPhase_) / gridStep_);
    if (std::fabs(samples - onGrid) <= unit + 1) return onGrid;
  }
  return media::Rounded(samples);
}

bool AudioReader::SeeksExactly() const {
  if (!HasReliableIndex(*file_, codec_->codec_id)) return false;
  const bool stampsCountSamples = av_q2d(stream()->time_base) * firstRate_ <= 1.0;
  return stampsCountSamples || (gridStep_ > 0 && HasEqualFrames(*stream()->codecpar));
}

long double AudioReader::ContainerTime(std::int64_t pts) const {
  const AVRational base = stream()->time_base;
  return static_cast<long double>(pts - startStamp_) * base.num / base.den;
}

long double AudioReader::FrameTime() const {
  return clock_.offset + static_cast<long double>(position_) / clock_.rate;
}

void AudioReader::NotePacketLost() {
  // Before the first sound, and until a decoder has settled after a seek, nothing is lost.
  if (clock_.known) ++lostPackets_;
}

void AudioReader::NoteGap(long double missing) {
  constexpr long double kLongest = static_cast<long double>(kLongestHole) / kTicksPerSecond;
  constexpr long double most = 24 * 3600;
  if (missing > 0 && missing <= kLongest) holes_ += missing;
  // Consumers fill holes: a small file could make them write without end.
  const double length = media::StreamLength(file_->format(), index_);
  if (holes_ > most) {
    holesAreTooLong_ = true;
    Fail("the holes in its sound add up to more than 24 hours");
  } else if (length > 0 && holes_ > length + kLongest) {
    holesAreTooLong_ = true;
    Fail("the holes in its sound are longer than the file says it is");
  }
  // A plain FLAC file numbers its frames. In other containers a gap may be meant.
  if (missing > 0 && file_->IsFormat("flac")) Fail(Seconds(missing) + " of sound are missing");
}

void AudioReader::CheckEnd() {
  // Without a clock, nothing was decoded since a seek.
  if (!failure_.empty() || !clock_.known) return;
  const long double end = clock_.time();
  // FFmpeg may take tags at the end of such a file for frames.
  const int harmless = IsMpegAudio(codec_->codec_id) ? 2 : 0;
  if (const std::string why = media::WhyShort(*file_, index_, end); !why.empty()) {
    Fail(why);
  } else if (media::IsCutOff(*file_)) {
    Fail("the file is cut off after " + Seconds(end));
  } else if (lostPackets_ > harmless) {
    Fail("the sound ends with damaged data at " + Seconds(end));
  }
}

void AudioReader::Fail(const std::string& reason) {
  if (failure_.empty()) failure_ = reason;
}

}  // namespace zel::kernaldec
