// What the decoder module writes into those parts of a stream's description that the media
// information model carries without reading them: formats of pictures, names of programs.
//
//   if (const auto video = zel::kernaldec::Unpack(stream->GetVideoSrcInfo())) {
//     std::printf("%d x %d pixels\n", video->width, video->height);
//   }
//   for (unsigned long i = 0; i < stream->GetExtraDataCount(); ++i) {
//     const SStreamExtraData* block = stream->GetExtraData(i);
//     if (block->type == zel::kernaldec::kProgramNameBlock) Show(block->data, block->size);
//   }
//
// Another decoder manager may write something else there, or nothing.
//
// Threads: the functions have no state. Any thread may call them on a description of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "zel/mediainfo/StreamRecords.h"

namespace zel::kernaldec {

/// How the module uses a VideoInfo. `GetVideoInfo()` describes pictures as they are delivered,
/// planar 4:2:0 of 8 bits, `GetVideoSrcInfo()` as they are in the file. Numbers that the file does
/// not state are 0.
struct VideoFormat {
  static constexpr std::uint32_t kLayout = 0x3146565A;  ///< "ZVF1", first character lowest.

  std::int32_t width;                 ///< Pixels.
  std::int32_t height;                ///< Pixels.
  std::int32_t frameRateNumerator;    ///< Pictures per second, on average.
  std::int32_t frameRateDenominator;  ///< 0 when the rate is not known.
  std::int32_t aspectNumerator;       ///< Width to height of one pixel.
  std::int32_t aspectDenominator;     ///< 0 when it is not known.
  std::int32_t bitDepth;              ///< Bits per component of a pixel.
  std::int32_t isCover;               ///< 1: a picture that accompanies sound and has no time.
  std::int32_t reserved[4];           ///< 0.
  std::uint32_t layout;               ///< kLayout; any other value is not this module's.
};
static_assert(sizeof(VideoFormat) == sizeof(VideoInfo));
static_assert(offsetof(VideoFormat, layout) == 48);

/// Converts `format` to the record that a description carries.
inline VideoInfo Pack(const VideoFormat& format) {
  VideoInfo info;
  std::memcpy(&info, &format, sizeof(info));
  return info;
}

/// Reads a record that a description carries.
/// @return nothing for null, and for a record that this module has not written
inline std::optional<VideoFormat> Unpack(const VideoInfo* info) {
  if (info == nullptr) return std::nullopt;
  VideoFormat format;
  std::memcpy(&format, info, sizeof(format));
  if (format.layout != VideoFormat::kLayout) return std::nullopt;
  return format;
}

/// The type of the extra-data block that holds a program's name, such as a broadcast's "News 24",
/// as UTF-8 without a terminator. It belongs to the program's first stream that is described.
inline constexpr auto kProgramNameBlock = static_cast<STREAM_EXTRA_DATA_TYPE>(0x4D414E50);

}  // namespace zel::kernaldec
