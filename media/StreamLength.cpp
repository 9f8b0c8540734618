#include "media/StreamLength.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/parseutils.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace zel::media {
namespace {

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
  // Priming and padding that a decoder drops, and how far lengths that other programs wrote are
  // off.
  constexpr long double kSlack = 0.25L;
  if (format->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return {};
  if (file.IsFormat("matroska")) {
    // FFmpeg gives every stream the length of the longest.
    const double tagged = TaggedLength(stream, Start(stream));
    if (tagged <= 0 && TimedStreams(format) > 1) return {};
    const double length = StreamLength(format, index);
    return length > 0 ? DeclaredLength{length, kSlack} : DeclaredLength{};
  }
  if (stream.duration == AV_NOPTS_VALUE || stream.duration <= 0) return {};
  const long double length =
      static_cast<long double>(stream.duration) * stream.time_base.num / stream.time_base.den;
  // These count samples. Half a sample allows for the rounding of `length`.
  if ((file.IsFormat("flac") || file.IsFormat("aiff")) && rate > 0) return {length, 0.5L / rate};
  // The header in the first frame counts all frames, but encoders leave out some samples.
  if (file.IsFormat("mp3")) return {length, 0.1L};
  for (const char* name : {"mp4", "avi", "ogg", "caf"}) {
    if (file.IsFormat(name)) return {length, kSlack};
  }
  return {};
}

std::string WhyShort(const MediaFile& file, int index, long double end) {
  if (file.HasChanged()) return "the file has changed while it was read";
  const DeclaredLength declared = FindDeclaredLength(file, index);
  if (declared.seconds - declared.slack <= end) return {};
  return "the file ends after " + Seconds(end) + " of " + Seconds(declared.seconds);
}

}  // namespace zel::media
