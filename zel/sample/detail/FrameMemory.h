// What a frame record says about the memory of its data.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>

#include "zel/sample/MediaFrame.h"

namespace zel::sample {

/// Most bytes that a record can state: its sizes are signed.
constexpr std::uint32_t kMaxDataSize = std::numeric_limits<std::int32_t>::max();

/// Sizes in bytes of a 4:2:0 picture whose planes lie one after the other without gaps.
struct PackedSizes {
  std::uint32_t luma = 0;
  std::uint32_t chroma = 0;  ///< Of one chroma plane.
  std::uint32_t total = 0;
};

/// True for RGB, YUV and BUFFER.
bool IsKnownImageFormat(std::int32_t format);

/// Finds the sizes of a picture of `width` x `height` luma pixels.
/// @return false, with `sizes` zero, when a dimension is negative or the picture is larger than
///   kMaxDataSize.
bool GetPackedSizes(std::int32_t width, std::int32_t height, PackedSizes& sizes);

/// Finds how many bytes of data a copy of `frame` takes: 0 for an unknown kind of frame.
/// @return false when the size is negative or above kMaxDataSize, or when a bitmap has a size but
///   no pixels.
bool GetDataSize(const MEDIA_FRAME& frame, std::uint32_t& size);

/// The record's pointer to its block of data; null for an unknown kind of frame.
unsigned char** GetBlock(MEDIA_FRAME& frame);

/// Bytes that a copy may write to the frame's block when its sample counts `sampleSize` bytes.
/// Sound and plain buffers state their own size, which FrameAttach and producers may have made
/// smaller than the sample's. Planes and bitmaps state none.
std::uint32_t GetCapacity(MEDIA_FRAME& frame, std::uint32_t sampleSize);

/// Moves the block of a video frame, which holds `capacity` bytes, to the union's arm for another
/// known image format. The rest of that arm is zero.
void ChangeImageFormat(MEDIA_FRAME& frame, std::int32_t format, std::uint32_t capacity);

/// Puts `fresh`, of `size` bytes, into the record. The data's other fields stay, except that a YUV
/// frame loses its planes and no record states more data than its block holds.
/// @return the block that was there before.
std::unique_ptr<unsigned char[]> ReplaceBlock(MEDIA_FRAME& frame,
                                              std::unique_ptr<unsigned char[]> fresh,
                                              std::uint32_t size);

}  // namespace zel::sample
