#include "zel/sample/detail/FrameMemory.h"

#include <algorithm>
#include <cstring>

namespace zel::sample {

namespace {

/// The size that a record states is signed; a negative one counts as 0.
std::uint32_t ToSize(std::int32_t stated) {
  return static_cast<std::uint32_t>(std::max(stated, 0));
}

}  // namespace

bool IsKnownImageFormat(std::int32_t format) {
  return format == IMAGE_FORMAT_RGB || format == IMAGE_FORMAT_YUV || format == IMAGE_FORMAT_BUFFER;
}

bool GetPackedSizes(std::int32_t width, std::int32_t height, PackedSizes& sizes) {
  sizes = {};
  if (width < 0 || height < 0) return false;
  const auto w = static_cast<std::uint64_t>(width);
  const auto h = static_cast<std::uint64_t>(height);
  const std::uint64_t luma = w * h;
  const std::uint64_t chroma = ((w + 1) / 2) * ((h + 1) / 2);
  if (luma + 2 * chroma > kMaxDataSize) return false;
  sizes.luma = static_cast<std::uint32_t>(luma);
  sizes.chroma = static_cast<std::uint32_t>(chroma);
  sizes.total = sizes.luma + 2 * sizes.chroma;
  return true;
}

bool GetDataSize(const MEDIA_FRAME& frame, std::uint32_t& size) {
  size = 0;
  std::int32_t bytes = 0;
  if (frame.nStreamType == AV_STREAM_AUDIO) {
    bytes = frame.audio.nDataSize;
  } else if (frame.nStreamType == AV_STREAM_VIDEO) {
    switch (frame.video.nImageFormat) {
      case IMAGE_FORMAT_BUFFER:
        bytes = frame.video.buffer.nDataSize;
        break;
      case IMAGE_FORMAT_YUV: {
        PackedSizes sizes;
        const bool valid = GetPackedSizes(frame.video.yuv.nWidth, frame.video.yuv.nHeight, sizes);
        size = sizes.total;
        return valid;
      }
      case IMAGE_FORMAT_RGB:
        size = frame.video.rgb.bmiHeader.biSizeImage;
        return size == 0 || (size <= kMaxDataSize && frame.video.rgb.pBits != nullptr);
      default:
        break;
    }
  }
  if (bytes < 0) return false;
  size = static_cast<std::uint32_t>(bytes);
  return true;
}

unsigned char** GetBlock(MEDIA_FRAME& frame) {
  if (frame.nStreamType == AV_STREAM_AUDIO) return &frame.audio.pData;
  if (frame.nStreamType != AV_STREAM_VIDEO) return nullptr;
  switch (frame.video.nImageFormat) {
    case IMAGE_FORMAT_RGB:
      return &frame.video.rgb.pBits;
    case IMAGE_FORMAT_YUV:
      return &frame.video.yuv.pPlane[0];
    case IMAGE_FORMAT_BUFFER:
      return &frame.video.buffer.pData;
    default:
      return nullptr;
  }
}

std::uint32_t GetCapacity(MEDIA_FRAME& frame, std::uint32_t sampleSize) {
  unsigned char** const block = GetBlock(frame);
  if (block == nullptr || *block == nullptr) return 0;
  if (frame.nStreamType == AV_STREAM_AUDIO) {
    return std::min(sampleSize, ToSize(frame.audio.nBufferSize));
  }
  if (frame.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
    return std::min(sampleSize, ToSize(frame.video.buffer.nBufferSize));
  }
  return sampleSize;
}

void ChangeImageFormat(MEDIA_FRAME& frame, std::int32_t format, std::uint32_t capacity) {
  unsigned char** const from = GetBlock(frame);
  unsigned char* const block = from != nullptr ? *from : nullptr;
  std::memset(&frame.video, 0, sizeof(frame.video));
  frame.video.nImageFormat = format;
  *GetBlock(frame) = block;
  if (format == IMAGE_FORMAT_BUFFER) {
    frame.video.buffer.nBufferSize = static_cast<std::int32_t>(std::min(capacity, kMaxDataSize));
  }
}

std::unique_ptr<unsigned char[]> ReplaceBlock(MEDIA_FRAME& frame,
                                              std::unique_ptr<unsigned char[]> fresh,
                                              std::uint32_t size) {
  unsigned char** const block = GetBlock(frame);
  std::unique_ptr<unsigned char[]> replaced(*block);
  const auto bufferSize = static_cast<std::int32_t>(std::min(size, kMaxDataSize));
  if (frame.nStreamType == AV_STREAM_AUDIO) {
    frame.audio.nBufferSize = bufferSize;
    frame.audio.nDataSize = std::min(frame.audio.nDataSize, bufferSize);
  } else if (frame.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
    frame.video.buffer.nBufferSize = bufferSize;
    frame.video.buffer.nDataSize = std::min(frame.video.buffer.nDataSize, bufferSize);
  } else if (frame.video.nImageFormat == IMAGE_FORMAT_YUV) {
    std::fill_n(frame.video.yuv.pPlane, 4, nullptr);
  }
  *block = fresh.release();
  return replaced;
}

}  // namespace zel::sample
