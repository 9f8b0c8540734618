#include <algorithm>
#include <cassert>
#include <cstring>
#include <memory>

#include "zel/sample/Sample.h"
#include "zel/sample/detail/FrameMemory.h"

using namespace zel::sample;

namespace {

/// True when a sample that counts `sampleSize` bytes has enough of them for `size` bytes of `from`.
bool Fits(MEDIA_FRAME& to, const MEDIA_FRAME& from, std::uint32_t size, std::uint32_t sampleSize) {
  if (size > sampleSize) return false;
  const bool isVideo = from.nStreamType == AV_STREAM_VIDEO;
  const bool isRgb = isVideo && from.video.nImageFormat == IMAGE_FORMAT_RGB;
  unsigned char** const block = GetBlock(to);
  // Sound, planes and bytes are not copied into a frame without memory.
  if (block != nullptr && *block == nullptr && !isRgb) return true;
  // A new format whose record states no size needs a block that really has `sampleSize` bytes.
  const bool losesSize = isVideo && to.video.nImageFormat == IMAGE_FORMAT_BUFFER &&
                         from.video.nImageFormat != IMAGE_FORMAT_BUFFER;
  return (losesSize ? sampleSize : size) <= GetCapacity(to, sampleSize);
}

/// Bytes to allocate where `size` bytes of `from` do not fit.
std::uint32_t SizeToAllocate(const MEDIA_FRAME& from, std::uint32_t size,
                             std::uint32_t sampleSize) {
  // A block that is smaller than its sample says gets the size that it should have.
  if (size <= sampleSize) return sampleSize;
  // A reused sample takes later, larger bitmaps without another allocation.
  const bool isRgb =
      from.nStreamType == AV_STREAM_VIDEO && from.video.nImageFormat == IMAGE_FORMAT_RGB;
  return isRgb ? 2 * size : size;
}

/// Frees a picture's block before the frame gets an unknown format, whose memory nothing frees.
void FreePicture(MEDIA_FRAME& frame) {
  unsigned char** const block = GetBlock(frame);
  if (block == nullptr) return;
  delete[] * block;
  std::memset(&frame.video, 0, sizeof(frame.video));
}

/// True when `size` bytes at `data` lie within the `room` bytes at `block`.
bool IsInside(const unsigned char* data, std::uint32_t size, const unsigned char* block,
              std::uint32_t room) {
  const auto from = reinterpret_cast<std::uintptr_t>(data);
  const auto start = reinterpret_cast<std::uintptr_t>(block);
  return data != nullptr && from >= start && from - start <= room && size <= room - (from - start);
}

bool Overlap(const unsigned char* a, std::uint32_t aSize, const unsigned char* b,
             std::uint32_t bSize) {
  const auto aStart = reinterpret_cast<std::uintptr_t>(a);
  const auto bStart = reinterpret_cast<std::uintptr_t>(b);
  return aStart < bStart + bSize && bStart < aStart + aSize;
}

/// Filling one plane of the `size` bytes at `target` must not destroy the source of the next one.
/// If one of the `planes` lies there, this copies all of them to a block of their own, points
/// `planes` to it and returns it.
std::unique_ptr<unsigned char[]> StagePlanes(const unsigned char* (&planes)[3],
                                             const std::uint32_t (&bytes)[3],
                                             const unsigned char* target, std::uint32_t size) {
  const auto overlaps = [&](int i) { return Overlap(planes[i], bytes[i], target, size); };
  if (target == nullptr || !(overlaps(0) || overlaps(1) || overlaps(2))) return nullptr;
  std::unique_ptr<unsigned char[]> staged(new unsigned char[size]);
  unsigned char* at = staged.get();
  for (int i = 0; i < 3; ++i) {
    if (planes[i] == nullptr) continue;
    std::memcpy(at, planes[i], bytes[i]);
    planes[i] = at;
    at += bytes[i];
  }
  return staged;
}

}  // namespace

HRESULT CZelSample::FrameCopy(CZelSample& src) {
  if (&src == this || src.m_eStreamType != m_eStreamType || src.m_eFrameType != m_eFrameType) {
    return E_ZEL_STATE;
  }
  assert(m_pMediaFrame);
  if (src.m_pMediaFrame == nullptr) return E_ZEL_STATE;
  const MEDIA_FRAME& from = *src.m_pMediaFrame;
  std::uint32_t size = 0;
  if (!GetDataSize(from, size)) return E_ZEL_STATE;

  HRESULT result = S_OK;
  if (from.nStreamType != m_pMediaFrame->nStreamType ||
      (from.nStreamType != AV_STREAM_AUDIO && from.nStreamType != AV_STREAM_VIDEO)) {
    result = E_ZEL_STATE;
  } else if (&from == m_pMediaFrame) {
    m_nDataSize = size;
  } else {
    CopyData(from, size);
  }
  m_pMediaFrame->llDTS = from.llDTS;
  m_pMediaFrame->llPTS = from.llPTS;
  m_pMediaFrame->nDuration = from.nDuration;
  m_nStreamID = src.m_nStreamID;
  m_eSampleType = src.m_eSampleType;
  m_bKeyFrame = src.m_bKeyFrame;
  m_llPTS = src.m_llPTS;
  m_llDTS = src.m_llDTS;
  return result;
}

HRESULT CZelSample::FrameCopy(const MEDIA_FRAME* src) {
  if (src == nullptr || src == m_pMediaFrame || src->nStreamType != m_eStreamType ||
      src->nFrameType != m_eFrameType) {
    return E_ZEL_STATE;
  }
  assert(m_pMediaFrame);
  if (src->nStreamType == AV_STREAM_VIDEO) {
    if (!IsKnownImageFormat(src->video.nImageFormat)) assert(0);
  } else if (src->nStreamType != AV_STREAM_AUDIO) {
    assert(0);
  }
  std::uint32_t size = 0;
  if (m_pMediaFrame->nStreamType != src->nStreamType || !GetDataSize(*src, size)) {
    return E_ZEL_STATE;
  }

  CopyData(*src, size);
  MEDIA_FRAME& frame = *m_pMediaFrame;
  frame.llDTS = src->llDTS;
  frame.llPTS = src->llPTS;
  frame.nDuration = src->nDuration;
  if (frame.nStreamType == AV_STREAM_VIDEO) m_bKeyFrame = frame.bKeyFrame;
  m_llDuration = frame.nDuration;
  m_llPTS = frame.llPTS;
  m_llDTS = frame.llDTS;
  return S_OK;
}

// Gives this frame the image format of `from` and room for `size` bytes. Returns the block that it
// replaced: the caller frees it after copying, because the source may lie in it.
std::unique_ptr<unsigned char[]> CZelSample::MakeRoom(const MEDIA_FRAME& from, std::uint32_t size) {
  MEDIA_FRAME& to = *m_pMediaFrame;
  const std::uint32_t capacity = GetCapacity(to, m_nSampleSize);
  const bool fits = Fits(to, from, size, m_nSampleSize);
  const std::uint32_t freshSize = fits ? 0 : SizeToAllocate(from, size, m_nSampleSize);
  std::unique_ptr<unsigned char[]> fresh;
  if (freshSize != 0) fresh.reset(new unsigned char[freshSize]);

  if (to.nStreamType == AV_STREAM_VIDEO && to.video.nImageFormat != from.video.nImageFormat) {
    ChangeImageFormat(to, from.video.nImageFormat, capacity);
  }
  if (fresh == nullptr) return nullptr;
  m_nSampleSize = freshSize;
  return ReplaceBlock(to, std::move(fresh), freshSize);
}

// Copies the data of `from`, `size` bytes, into this frame of the same stream type. Throws
// std::bad_alloc with nothing changed.
void CZelSample::CopyData(const MEDIA_FRAME& from, std::uint32_t size) {
  if (from.nStreamType == AV_STREAM_AUDIO) return CopySound(from, size);
  MEDIA_FRAME& to = *m_pMediaFrame;
  switch (from.video.nImageFormat) {
    case IMAGE_FORMAT_BUFFER:
      CopyBytes(from, size);
      break;
    case IMAGE_FORMAT_YUV:
      CopyPlanes(from, size);
      break;
    case IMAGE_FORMAT_RGB:
      CopyBitmap(from, size);
      break;
    default:
      FreePicture(to);
      to.video.nImageFormat = from.video.nImageFormat;
      m_nDataSize = 0;
      break;
  }
  to.bKeyFrame = from.bKeyFrame;
}

void CZelSample::CopySound(const MEDIA_FRAME& from, std::uint32_t size) {
  const auto replaced = MakeRoom(from, size);
  const MEDIA_FRAME_AUDIO& source = from.audio;
  MEDIA_FRAME_AUDIO& target = m_pMediaFrame->audio;
  if (source.pData == nullptr || target.pData == nullptr) return;
  std::memmove(target.pData, source.pData, size);
  target.nDataSize = source.nDataSize;
  target.nBitsPerSample = source.nBitsPerSample;
  target.nChannels = source.nChannels;
  target.nSampleRate = source.nSampleRate;
  m_nDataSize = size;
}

void CZelSample::CopyBytes(const MEDIA_FRAME& from, std::uint32_t size) {
  const auto replaced = MakeRoom(from, size);
  const MEDIA_FRAME_BUFFER& source = from.video.buffer;
  MEDIA_FRAME_BUFFER& target = m_pMediaFrame->video.buffer;
  if (source.pData == nullptr || target.pData == nullptr) return;
  std::memmove(target.pData, source.pData, size);
  target.nDataSize = source.nDataSize;
  m_nDataSize = size;
}

void CZelSample::CopyBitmap(const MEDIA_FRAME& from, std::uint32_t size) {
  const auto replaced = MakeRoom(from, size);
  m_nDataSize = size;
  MEDIA_FRAME_RGB& target = m_pMediaFrame->video.rgb;
  target.bmiHeader = from.video.rgb.bmiHeader;
  if (size != 0) std::memmove(target.pBits, from.video.rgb.pBits, size);
}

void CZelSample::CopyPlanes(const MEDIA_FRAME& from, std::uint32_t size) {
  const MEDIA_FRAME_YUV& source = from.video.yuv;
  PackedSizes sizes;
  GetPackedSizes(source.nWidth, source.nHeight, sizes);
  const std::uint32_t bytes[3] = {sizes.luma, sizes.chroma, sizes.chroma};
  const unsigned char* planes[3] = {source.pPlane[0], source.pPlane[1], source.pPlane[2]};

  unsigned char** const block = GetBlock(*m_pMediaFrame);
  const auto staged = StagePlanes(planes, bytes, block != nullptr ? *block : nullptr, size);

  const auto replaced = MakeRoom(from, size);
  m_nDataSize = size;
  MEDIA_FRAME_YUV& target = m_pMediaFrame->video.yuv;
  target.nYuvFormat = source.nYuvFormat;
  for (int i = 0; i < 3; ++i) {
    unsigned char* const to = target.pPlane[i];
    // If the source lacks the preceding plane, this pointer may still come from an earlier picture.
    if (planes[i] == nullptr || !IsInside(to, bytes[i], target.pPlane[0], m_nSampleSize)) continue;
    std::memmove(to, planes[i], bytes[i]);
    if (i < 2) target.pPlane[i + 1] = to + bytes[i];
  }
  target.nWidth = source.nWidth;
  target.nHeight = source.nHeight;
  std::copy_n(source.nStride, 3, target.nStride);
}
