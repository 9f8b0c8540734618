#include "kernaldec/sound/AudioReader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

#include "kernaldec/file/Completeness.h"
#include "media/Ticks.h"

namespace zel::kernaldec {
namespace {

// Reading on is cheaper than a seek over distances like this one.
constexpr double kReadOnSeconds = 1.0;
// What decoders with memory (overlapping blocks, bit reservoirs) get to settle before a target.
constexpr double kPrerollSeconds = 0.3;
// Longer than any sound; what is sought beyond it is past the end, too.
constexpr double kLatestSeconds = 1e9;

std::string Seconds(long double seconds) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.3Lf s", seconds);
  return text;
}

// Containers whose seeks land on, and stamp, packets as reading from the start does.
bool HasReliableIndex(const media::MediaFile& file, AVCodecID codec) {
  for (const char* name :
       {"wav", "w64", "aiff", "au", "caf", "flac", "mp4", "matroska", "mpegts", "aac", "mp3"}) {
    if (file.IsFormat(name)) return true;
  }
  return file.IsFormat("ogg") && (codec == AV_CODEC_ID_VORBIS || codec == AV_CODEC_ID_OPUS);
}

// Bare elementary streams: their stamps are FFmpeg's own sums of rounded durations, which drift.
bool HasMadeUpStamps(const media::MediaFile& file) {
  for (const char* name : {"ac3", "eac3", "dts", "mlp", "truehd"}) {
    if (file.IsFormat(name)) return true;
  }
  return false;
}

// Codecs all of whose frames have the same number of samples.
bool HasEqualFrames(const AVCodecParameters& codec) {
  switch (codec.codec_id) {
    case AV_CODEC_ID_AAC:
    case AV_CODEC_ID_AC3:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_OPUS:
      return true;
    case AV_CODEC_ID_FLAC:
      // The stream header gives the smallest and the largest block.
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
  reader->m_index = index;
  reader->m_packet.reset(media::NotNull(av_packet_alloc()));
  reader->m_frame.reset(media::NotNull(av_frame_alloc()));
  if (!reader->Start(std::move(file))) return nullptr;
  return reader;
}

bool AudioReader::Start(std::unique_ptr<media::MediaFile> file) {
  m_codec.reset();
  m_file = std::move(file);
  m_state = State::kEnded;
  const auto count = static_cast<int>(m_file->format()->nb_streams);
  if (m_index >= count) return false;
  for (int i = 0; i < count; ++i) {
    m_file->stream(i)->discard = i == m_index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  m_codec = media::OpenDecoder(*stream());
  if (m_codec == nullptr) return false;
  m_madeUpStamps = HasMadeUpStamps(*m_file);
  m_shortReads = MarksShortReads(*m_file);
  m_inputEnded = false;
  m_lostPackets = 0;
  m_clock = {};
  m_fromStart = true;
  m_framesRead = 0;
  m_gridPhase = 0;
  m_gridStep = 0;
  if (!DecodeFrame()) return false;
  m_state = State::kBeforeFirst;
  return true;
}

bool AudioReader::Reopen() {
  std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(m_file->path());
  if (file != nullptr && Start(std::move(file))) return true;
  m_state = State::kEnded;
  Fail("the file cannot be read a second time");
  return false;
}

std::int64_t AudioReader::startPts() const {
  return media::ToTicks(m_startTicks, stream()->time_base);
}

std::int64_t AudioReader::timeStamp() const {
  // Whole samples are rounded once.
  return media::Rounded(m_clock.offset * kTicksPerSecond) +
         media::ToTicks(m_position + m_first, {1, m_clock.rate});
}

bool AudioReader::Next() {
  const State before = m_state;
  if (before == State::kEnded) return false;
  m_state = State::kEnded;  // Also when decoding throws.
  if (before == State::kBeforeFirst || DecodeFrame()) {
    m_state = State::kAtFrame;
    return true;
  }
  CheckEnd();
  return false;
}

bool AudioReader::Seek(double seconds) {
  seconds = std::clamp(seconds, 0.0, kLatestSeconds);
  const bool hasFrame = m_state != State::kEnded;
  const bool ahead = hasFrame && seconds >= static_cast<double>(FrameTime());
  if (ahead && seconds <= static_cast<double>(FrameTime()) + kReadOnSeconds) {
    return DropUntil(seconds);
  }
  if (SeeksExactly() && SeekByIndex(seconds)) return DropUntil(seconds);
  if (!ahead || !m_fromStart) {
    if (!Reopen()) return false;
  }
  return DropUntil(seconds);
}

/// Goes to a frame at or before `seconds` that is known to the sample.
/// @return false when there is none, or only the start of the file is near enough: the position is
///   then undefined.
bool AudioReader::SeekByIndex(double seconds) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(m_codec->codec_id);
  const bool lossless = codec != nullptr && (codec->props & AV_CODEC_PROP_LOSSY) == 0;
  double settle = lossless ? 0.0 : kPrerollSeconds;
  const int declared = stream()->codecpar->seek_preroll;
  if (declared > 0 && m_firstRate > 0) {
    settle = std::max(settle, static_cast<double>(declared) / m_firstRate);
  }
  // A demultiplexer that lands late is asked again for a place further ahead.
  for (const double margin : {0.0, 2.0, 10.0}) {
    const double from = seconds - settle - margin;
    if (from <= 0) break;
    const double tick = av_q2d(stream()->time_base);
    const std::int64_t ticks = m_startTicks + media::Rounded(std::floor(from / tick));
    if (av_seek_frame(m_file->format(), m_index, ticks, AVSEEK_FLAG_BACKWARD) < 0) break;
    avcodec_flush_buffers(m_codec.get());
    m_fromStart = false;
    m_inputEnded = false;
    m_lostPackets = 0;
    m_clock = {};
    if (!DecodeFrame()) break;
    m_state = State::kBeforeFirst;
    if (static_cast<double>(FrameTime()) <= seconds) return true;
  }
  m_fromStart = false;
  return false;
}

/// Reads on from the current or the next frame until `seconds` lies in the current one.
bool AudioReader::DropUntil(double seconds) {
  for (bool more = m_state == State::kAtFrame || Next(); more; more = Next()) {
    const long double ahead = (static_cast<long double>(seconds) - FrameTime()) * m_clock.rate;
    const auto size = static_cast<long double>(m_frame->nb_samples);
    m_first = static_cast<int>(std::llround(std::clamp(ahead, 0.0L, size)));
    if (m_first < m_frame->nb_samples) return true;
  }
  return false;
}

/// Decodes the next frame that has samples and a place in time into m_frame.
/// @return false at the end of the input, or when reading has failed.
bool AudioReader::DecodeFrame() {
  while (ReceiveFrame()) {
    if (m_frame->nb_samples > 0 && m_frame->sample_rate > 0 && Place()) return true;
  }
  return false;
}

bool AudioReader::ReceiveFrame() {
  for (;;) {
    const int result = avcodec_receive_frame(m_codec.get(), m_frame.get());
    if (result >= 0) return true;
    if (result == AVERROR_EOF) return false;
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result != AVERROR(EAGAIN)) {
      NotePacketLost();
      // A decoder that fails while it is being emptied may go on failing.
      if (m_inputEnded) return false;
    }
    if (!FeedDecoder()) return false;
  }
}

/// Sends the decoder one packet, or, once the input has ended, the request to empty itself.
bool AudioReader::FeedDecoder() {
  if (m_inputEnded) return false;
  for (;;) {
    const int result = m_file->ReadPacket(m_packet.get());
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result < 0) {
      m_inputEnded = true;
      if (m_file->readError() != 0) {
        Fail("reading failed: " + media::ErrorText(AVERROR(m_file->readError())));
      } else if (result != AVERROR_EOF) {
        // Whatever code it gives: an input/output error among them, without one of the disk's.
        Fail("the file is cut off or damaged");
      }
      avcodec_send_packet(m_codec.get(), nullptr);
      return true;
    }
    if (m_packet->stream_index == m_index) break;
    av_packet_unref(m_packet.get());
  }
  const bool corrupt = !m_shortReads && (m_packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
  const int sent = avcodec_send_packet(m_codec.get(), m_packet.get());
  av_packet_unref(m_packet.get());
  if (sent == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (corrupt || (sent < 0 && sent != AVERROR(EAGAIN) && sent != AVERROR_EOF)) NotePacketLost();
  return true;
}

/// Finds the frame's place in time.
/// @return false when it has none: the first frames after a seek may come without stamps.
bool AudioReader::Place() {
  const int rate = m_frame->sample_rate;
  const std::int64_t found =
      m_frame->pts != AV_NOPTS_VALUE ? m_frame->pts : m_frame->best_effort_timestamp;
  const bool first = m_fromStart && m_framesRead == 0;
  const bool stamped = found != AV_NOPTS_VALUE && (first || !m_madeUpStamps);
  const std::int64_t pts = media::Bounded(found);

  if (first) {
    m_startTicks = stamped                                  ? pts
                   : stream()->start_time != AV_NOPTS_VALUE ? media::Bounded(stream()->start_time)
                                                            : 0;
    m_firstRate = rate;
    m_firstChannels = m_frame->ch_layout.nb_channels;
    m_clock = {true, rate, 0, 0};
  } else if (!m_clock.known) {
    if (!stamped) return false;
    m_clock = {true, rate, 0, 0};
    const long double time = ContainerTime(pts);
    if (rate == m_firstRate) {
      m_clock.samples = Landing(time);
    } else {
      m_clock.offset = time;
    }
  } else if (rate != m_clock.rate) {
    m_clock.offset += static_cast<long double>(m_clock.samples) / m_clock.rate;
    m_clock.rate = rate;
    m_clock.samples = 0;
  }
  if (stamped && !first) {
    // Two stamps, each rounded to a tick, may disagree by one; demultiplexers that derive stamps
    // from bytes may be off by a sample more.
    const long double tolerance =
        1.5L * std::max<long double>(av_q2d(stream()->time_base), 1.0L / rate);
    const long double expected = m_clock.offset + static_cast<long double>(m_clock.samples) / rate;
    const long double actual = ContainerTime(pts);
    if (std::fabs(actual - expected) > tolerance) {
      NoteGap(actual - expected);
      m_clock.samples = media::Rounded((actual - m_clock.offset) * rate);
    }
  }

  if (m_fromStart && m_framesRead == 0) m_gridPhase = m_frame->nb_samples;
  if (m_fromStart && m_framesRead == 1) m_gridStep = m_frame->nb_samples;
  ++m_framesRead;
  if (m_lostPackets > 0) {
    Fail("damaged data at " +
         Seconds(m_clock.offset + static_cast<long double>(m_clock.samples) / rate));
    m_lostPackets = 0;
  }
  m_position = m_clock.samples;
  m_clock.samples += m_frame->nb_samples;
  m_first = 0;
  return true;
}

/// The sample at which a frame begins that the container stamps with `time`.
std::int64_t AudioReader::Landing(long double time) const {
  const long double samples = time * m_firstRate;
  const long double ticks = static_cast<long double>(av_q2d(stream()->time_base)) * m_firstRate;
  if (ticks > 1 && m_gridStep > 0) {
    const std::int64_t onGrid =
        m_gridPhase + m_gridStep * media::Rounded((samples - m_gridPhase) / m_gridStep);
    if (std::fabs(samples - onGrid) <= ticks + 1) return onGrid;
  }
  return media::Rounded(samples);
}

bool AudioReader::SeeksExactly() const {
  if (!HasReliableIndex(*m_file, m_codec->codec_id)) return false;
  const bool stampsCountSamples = av_q2d(stream()->time_base) * m_firstRate <= 1.0;
  return stampsCountSamples || (m_gridStep > 0 && HasEqualFrames(*stream()->codecpar));
}

long double AudioReader::ContainerTime(std::int64_t pts) const {
  const AVRational base = stream()->time_base;
  return static_cast<long double>(pts - m_startTicks) * base.num / base.den;
}

long double AudioReader::FrameTime() const {
  return m_clock.offset + static_cast<long double>(m_position) / m_clock.rate;
}

void AudioReader::NotePacketLost() {
  // What comes before the first sound, or before a decoder has settled after a seek, is no loss.
  if (m_clock.known) ++m_lostPackets;
}

void AudioReader::NoteGap(long double missing) {
  // Elsewhere gaps are legitimate; a plain FLAC file counts its frames.
  if (missing > 0 && m_file->IsFormat("flac")) Fail(Seconds(missing) + " of sound are missing");
}

void AudioReader::CheckEnd() {
  // Nothing has been decoded since a seek.
  if (!m_failure.empty() || !m_clock.known) return;
  const long double end = m_clock.offset + static_cast<long double>(m_clock.samples) / m_clock.rate;
  // Tags at the end of such a file look like frames.
  const int harmless = IsMpegAudio(m_codec->codec_id) ? 2 : 0;
  const DeclaredLength declared = FindDeclaredLength(*m_file, m_index);
  if (declared.seconds - declared.slack > end) {
    Fail("the file ends after " + Seconds(end) + " of " + Seconds(declared.seconds));
  } else if (IsCutOff(*m_file)) {
    Fail("the file is cut off after " + Seconds(end));
  } else if (m_lostPackets > harmless) {
    Fail("the sound ends with damaged data at " + Seconds(end));
  }
}

void AudioReader::Fail(const std::string& reason) {
  if (m_failure.empty()) m_failure = reason;
}

}  // namespace zel::kernaldec
