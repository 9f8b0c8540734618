// What the decoder module writes into the parts of a stream's description that the media
// information model carries without reading them. Hosts with another decoder manager find other
// things there, or nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "zel/mediainfo/StreamRecords.h"

namespace zel::kernaldec {

/// The module's use of a VideoInfo. `GetVideoInfo()` has the pictures as they are delivered, planar
/// 4:2:0 of 8 bits; `GetVideoSrcInfo()` has them as they are in the file. Numbers that the file
/// does not tell are 0.
struct VideoFormat {
  static constexpr std::uint32_t kLayout = 0x3146565A;  ///< "ZVF1"

  std::int32_t width;                 ///< Pixels.
  std::int32_t height;                ///< Pixels.
  std::int32_t frameRateNumerator;    ///< Pictures per second, on average.
  std::int32_t frameRateDenominator;  ///< 0 where the rate is not known.
  std::int32_t aspectNumerator;       ///< Width to height of one pixel.
  std::int32_t aspectDenominator;     ///< 0 where it is not known.
  std::int32_t bitDepth;              ///< Bits of one component of a pixel.
  std::int32_t isCover;               ///< 1: a picture that goes with the sound, outside time.
  std::int32_t reserved[4];           ///< 0.
  std::uint32_t layout;               ///< kLayout; anything else is not of this module.
};
static_assert(sizeof(VideoFormat) == sizeof(VideoInfo));
static_assert(offsetof(VideoFormat, layout) == 48);

inline VideoInfo Pack(const VideoFormat& format) {
  VideoInfo info;
  std::memcpy(&info, &format, sizeof(info));
  return info;
}

/// Nothing for null, and for a record that this module has not written.
inline std::optional<VideoFormat> Unpack(const VideoInfo* info) {
  if (info == nullptr) return std::nullopt;
  VideoFormat format;
  std::memcpy(&format, info, sizeof(format));
  if (format.layout != VideoFormat::kLayout) return std::nullopt;
  return format;
}

/// Type of the extra-data block with a program's name, such as a broadcast's "News 24": UTF-8
/// without a terminator. The first stream of the file that belongs to the program has it.
inline constexpr auto kProgramNameBlock = static_cast<STREAM_EXTRA_DATA_TYPE>(0x4D414E50);

}  // namespace zel::kernaldec
