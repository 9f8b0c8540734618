#include "media/StreamLength.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/parseutils.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace zel::media {
namespace {

// Priming and padding that a decoder drops, and how far lengths that other programs wrote are off,
// in seconds.
constexpr long double kUsualSlack = 0.25L;

/// Seconds; 0 when it is not known.
double Start(const AVStream& stream) {
  return stream.start_time == AV_NOPTS_VALUE
             ? 0
             : static_cast<double>(stream.start_time) * av_q2d(stream.time_base);
}

/// The length in seconds of a Matroska stream that starts at `start`, by its DURATION tag; 0
/// without one.
double TaggedLength(const AVStream& stream, double start) {
  const AVDictionaryEntry* tag = StatisticTag(stream, "DURATION");
  std::int64_t microseconds = 0;
  if (tag == nullptr || av_parse_time(&microseconds, tag->value, 1) < 0) return 0;
  double seconds = static_cast<double>(microseconds) / AV_TIME_BASE;
  // mkvmerge writes the length, and then a tag that lists its statistics. FFmpeg's muxer writes the
  // time of the end, behind all tags that it copied, and counts the samples that decoders drop.
  if (av_dict_get(stream.metadata, "_STATISTICS_TAGS", tag, AV_DICT_IGNORE_SUFFIX) == nullptr) {
    seconds -= start;
    const AVCodecParameters& codec = *stream.codecpar;
    if (codec.sample_rate > 0) {
      seconds -= static_cast<double>(codec.initial_padding) / codec.sample_rate;
    }
  }
  return ToMicroseconds(seconds);
}

/// Seconds as text.
std::string Seconds(long double seconds) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.3Lf s", seconds);
  return text;
}

/// The number of streams that take part in the container's length.
int TimedStreams(const AVFormatContext* format) {
  int count = 0;
  for (unsigned i = 0; i < format->nb_streams; ++i) {
    const AVStream& stream = *format->streams[i];
    const bool isAttachment = stream.codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT;
    if (!isAttachment && !IsCover(stream)) ++count;
  }
  return count;
}

/// The number of empty chunks of AVI stream `index`, by the file's index. The stream's length
/// counts them, but FFmpeg skips them.
/// @return -1 when the file has no such index, or one for a part of it (OpenDML)
std::int64_t EmptyChunks(const MediaFile& file, int index) {
  constexpr std::size_t kEntry = 16;
  constexpr std::uint32_t kMostBytes = 1 << 28;
  char id[16];
  std::snprintf(id, sizeof(id), "%02d", index);
  std::int64_t found = -1;
  for (std::int64_t at = 12; at + 8 <= file.size();) {
    char head[8] = {};
    file.ReadAt(static_cast<std::uint64_t>(at), head, sizeof(head));
    const std::uint32_t size = AV_RL32(head + 4);
    if (std::memcmp(head, "RIFF", 4) == 0 || size > kMostBytes * 8) return -1;
    if (std::memcmp(head, "idx1", 4) == 0 && size <= kMostBytes) {
      const std::int64_t there = std::min<std::int64_t>(size, file.size() - at - 8);
      std::string entries(static_cast<std::size_t>(there), '\0');
      file.ReadAt(static_cast<std::uint64_t>(at) + 8, entries.data(), entries.size());
      found = 0;
      for (std::size_t i = 0; i + kEntry <= entries.size(); i += kEntry) {
        if (entries.compare(i, 2, id) == 0 && AV_RL32(&entries[i + 12]) == 0) ++found;
      }
    }
    at += 8 + std::int64_t{size} + size % 2;
  }
  return found;
}

/// How much of the length that an AVI stream states must be present, in seconds; negative: unknown.
long double AviLength(const MediaFile& file, int index, long double length) {
  // What was written into a pipe claims as many frames as there can be.
  constexpr std::int64_t kPlaceholder = 1 << 30;
  const std::int64_t frames = file.stream(index)->nb_frames;
  if (frames <= 0) return length;
  const std::int64_t empty = EmptyChunks(file, index);
  if (frames >= kPlaceholder || empty < 0 || empty > frames) return -1;
  return length * static_cast<long double>(frames - empty) / static_cast<long double>(frames);
}

bool IsOf(const MediaFile& file, std::initializer_list<const char*> formats) {
  return std::any_of(formats.begin(), formats.end(),
                     [&](const char* name) { return file.IsFormat(name); });
}

}  // namespace

const AVDictionaryEntry* StatisticTag(const AVStream& stream, const std::string& key) {
  const AVDictionaryEntry* plain = av_dict_get(stream.metadata, key.c_str(), nullptr, 0);
  return plain != nullptr
             ? plain
             : av_dict_get(stream.metadata, (key + '-').c_str(), nullptr, AV_DICT_IGNORE_SUFFIX);
}

double ToMicroseconds(double seconds) {
  return std::round(std::max(seconds, 0.0) * AV_TIME_BASE) / AV_TIME_BASE;
}

double StreamLength(const AVFormatContext* format, int index) {
  const AVStream& stream = *format->streams[index];
  const bool isMatroska = av_match_name("matroska", format->iformat->name) != 0;
  // Matroska stores no lengths of streams; FFmpeg gives the container's.
  if (!isMatroska && stream.duration != AV_NOPTS_VALUE && stream.duration > 0) {
    return static_cast<double>(stream.duration) * av_q2d(stream.time_base);
  }
  const double start = Start(stream);
  const double tagged = isMatroska ? TaggedLength(stream, start) : 0;
  if (format->duration == AV_NOPTS_VALUE || format->duration <= 0) return tagged;
  double end = static_cast<double>(format->duration) / AV_TIME_BASE;
  if (format->start_time != AV_NOPTS_VALUE) {
    end += static_cast<double>(format->start_time) / AV_TIME_BASE;
  }
  const double rest = ToMicroseconds(end - start);
  return tagged > 0 ? std::min(tagged, rest) : rest;
}

DeclaredLength FindDeclaredLength(const MediaFile& file, int index) {
  const AVFormatContext* format = file.format();
  const AVStream& stream = *file.stream(index);
  const int rate = stream.codecpar->sample_rate;
  if (format->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return {};
  if (file.IsFormat("matroska")) {
    // FFmpeg gives every stream the length of the longest.
    const double tagged = TaggedLength(stream, Start(stream));
    if (tagged <= 0 && TimedStreams(format) > 1) return {};
    const double length = StreamLength(format, index);
    return length > 0 ? DeclaredLength{length, kUsualSlack} : DeclaredLength{};
  }
  if (IsOf(file, {"flv", "asf"})) {
    // They state the end of the longest stream.
    if (TimedStreams(format) > 1) return {};
    const DeclaredLength end = FindDeclaredEnd(file);
    return {end.seconds - Start(stream), end.slack};
  }
  if (stream.duration == AV_NOPTS_VALUE || stream.duration <= 0) return {};
  const long double length =
      static_cast<long double>(stream.duration) * stream.time_base.num / stream.time_base.den;
  // These count samples. Half a sample allows for the rounding of `length`.
  if (IsOf(file, {"flac", "aiff", "au", "tta", "wv"}) && rate > 0) return {length, 0.5L / rate};
  // The header in the first frame counts all frames, but encoders leave out some samples.
  if (file.IsFormat("mp3")) return {length, 0.1L};
  if (file.IsFormat("avi")) return {AviLength(file, index, length), kUsualSlack};
  if (IsOf(file, {"mp4", "ogg", "caf"})) return {length, kUsualSlack};
  return {};
}

DeclaredLength FindDeclaredEnd(const MediaFile& file) {
  const AVFormatContext* format = file.format();
  if (format->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return {};
  if (file.IsFormat("asf")) {
    // FFmpeg gives every stream the length of the file, which counts from 0.
    const AVStream& first = *file.stream(0);
    const bool isKnown = first.duration != AV_NOPTS_VALUE && first.duration > 0;
    const long double length = first.duration * static_cast<long double>(av_q2d(first.time_base));
    return isKnown ? DeclaredLength{length, kUsualSlack} : DeclaredLength{};
  }
  if (!IsOf(file, {"flv", "matroska"})) return {};
  if (format->duration == AV_NOPTS_VALUE || format->duration <= 0) return {};
  const std::int64_t start = format->start_time == AV_NOPTS_VALUE ? 0 : format->start_time;
  const auto end = static_cast<long double>(format->duration) + static_cast<long double>(start);
  // The last picture of a Flash film is shown for an unknown time.
  return {end / AV_TIME_BASE, file.IsFormat("flv") ? 1 : kUsualSlack};
}

std::string WhyShort(const DeclaredLength& declared, long double end) {
  if (declared.seconds - declared.slack <= end) return {};
  return "the file ends after " + Seconds(end) + " of " + Seconds(declared.seconds);
}

std::string WhyShort(const MediaFile& file, int index, long double end) {
  if (file.HasChanged()) return "the file has changed while it was read";
  const DeclaredLength declared = FindDeclaredLength(file, index);
  return WhyShort(declared, end);
}

}  // namespace zel::media
