// How long a stream is, as its file states it, and whether it holds that much.
//
//   const double end = ...;  // Where the last packet ends, in seconds from the stream's start.
//   if (const std::string why = media::WhyShort(file, index, end); !why.empty()) Fail(why);
//
// Every function reads only; the caller uses the file on one thread at a time.
#pragma once

#include <string>

#include "media/MediaFile.h"

namespace zel::media {

/// Finds a tag that states a fact about its stream. Some writers append a language ("BPS-eng").
/// @return null when there is none
const AVDictionaryEntry* StatisticTag(const AVStream& stream, const std::string& key);

/// Rounds a length in seconds to microseconds, FFmpeg's own precision; negative ones become 0.
double ToMicroseconds(double seconds);

/// The length of a stream in seconds as the file states it: the stream's own, else from its start
/// to the end of the container; 0 when neither is known.
double StreamLength(const AVFormatContext* format, int index);

/// A stream's length as its container states it.
struct DeclaredLength {
  long double seconds = -1;  ///< Negative: unknown.
  long double slack = 0;     ///< Seconds by which containers of the kind may be wrong.
};

/// The length that the container states for this very stream. Lengths estimated from a bit rate or
/// from the file's size do not count; neither does the longest stream's.
DeclaredLength FindDeclaredLength(const MediaFile& file, int index);

/// The end of the longest stream in seconds, on the file's own axis, where its container states no
/// more than that (FLV, ASF, Matroska); else unknown.
DeclaredLength FindDeclaredEnd(const MediaFile& file);

/// A line that says that `end` is too early; empty when it is not.
std::string WhyShort(const DeclaredLength& declared, long double end);

/// Says why what was read of stream `index` is not all of it: `end` (seconds from the stream's
/// start) is before the declared length, or the file's size has changed since it was opened.
/// @return one line without the file's name; empty when all is well, as far as the container tells
std::string WhyShort(const MediaFile& file, int index, long double end);

}  // namespace zel::media
