#include "zel/sample/Sample.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>

#include "zel/base/Ids.h"
#include "zel/sample/FrameBuffer.h"

namespace {

constexpr std::int32_t kFirstPacketInfoSize = 10;
constexpr std::int32_t kSubStreamStringStep = 1024;
// What a record can say of its data: its sizes are signed.
constexpr std::uint32_t kMaxDataSize = std::numeric_limits<std::int32_t>::max();

/// Sizes in bytes of a 4:2:0 picture whose planes lie one after the other without gaps.
struct PackedSizes {
  std::uint32_t luma = 0;
  std::uint32_t chroma = 0;
  std::uint32_t total = 0;
};

/// False, with `sizes` zero, when the picture is none or larger than a record can say.
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

/// Bytes of data that a copy of `frame` takes, 0 for a kind of frame that is not known. False when
/// the record's sizes are none, or it has an image size and no pixels.
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

/// The record's pointer to its one block of data; null for a kind of frame that is not known.
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

/// What a record says of the size of its block.
std::uint32_t GetStatedCapacity(const MEDIA_FRAME& frame) {
  if (frame.nStreamType == AV_STREAM_AUDIO) {
    return static_cast<std::uint32_t>(std::max(frame.audio.nBufferSize, 0));
  }
  if (frame.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
    return static_cast<std::uint32_t>(std::max(frame.video.buffer.nBufferSize, 0));
  }
  std::uint32_t size = 0;
  return GetDataSize(frame, size) ? size : 0;
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

}  // namespace

CZelSample::CZelSample(IUnknown* pUnkOuter, long* phr) : CUnknown(pUnkOuter, phr) {
  InitClassMember();
}

CZelSample::CZelSample(AV_STREAM_TYPE streamType, FRAME_DATA_TYPE frameType) : CUnknown(nullptr) {
  InitClassMember();
  m_eStreamType = streamType;
  m_eFrameType = frameType;
  if (frameType == FRAME_DATA_ENCODED) m_eImageFormat = IMAGE_FORMAT_BUFFER;
}

CZelSample::CZelSample() : CUnknown(nullptr) {
  InitClassMember();
}

CZelSample::~CZelSample() {
  FreeMediaFrame();
  delete[] m_pAudioPacketInfo;
  if (m_pFrameBuffer != nullptr) {
    m_pFrameBuffer->Release();
    m_pFrameBuffer = nullptr;
  }
  m_pCompareFrame = nullptr;
  delete[] m_pSubStreamString;
}

void CZelSample::InitClassMember() {
  m_bKeyFrame = 0;
  m_nStreamID = -1;
  m_nSampleSize = 0;
  m_nDataSize = 0;
  m_eSampleType = SAMPLE_TYPE_NONE;
  m_eFrameType = FRAME_DATA_ENCODED;
  m_eStreamType = AV_STREAM_NONE;
  m_eImageFormat = IMAGE_FORMAT_YUV;
  m_pMediaFrame = nullptr;
  m_llPTS = 0;
  m_llDTS = 0;
  m_llDuration = 0;
  m_pCompareFrame = nullptr;
  m_pFrameBuffer = nullptr;
  m_pBlock = nullptr;
  m_nBlockSize = 0;
  std::unique_ptr<std::int32_t[]> packets(new std::int32_t[kFirstPacketInfoSize]());
  m_pSubStreamString = new wchar_t[kSubStreamStringStep]();
  m_nSubStreamStringSize = kSubStreamStringStep;
  m_pAudioPacketInfo = packets.release();
  m_nAudioPacketInfoSize = kFirstPacketInfoSize;
}

HRESULT CZelSample::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<IZelSample>::get_guid())) {
    return scombase::GetInterface(static_cast<IZelSample*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CZelSample::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CZelSample::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CZelSample::Release() {
  return GetOwner()->Release();
}

SAMPLE_TYPE CZelSample::GetSampleType() {
  return m_eSampleType;
}
FRAME_DATA_TYPE CZelSample::GetFrameType() {
  return m_eFrameType;
}
AV_STREAM_TYPE CZelSample::GetStreamType() {
  return m_eStreamType;
}
std::int32_t CZelSample::GetStreamID() {
  return m_nStreamID;
}
std::int32_t CZelSample::IsKeyFrame() {
  return m_bKeyFrame;
}
HRESULT CZelSample::SetSampleType(SAMPLE_TYPE type) {
  m_eSampleType = type;
  return S_OK;
}
std::uint32_t CZelSample::GetSampleSize() {
  return m_nSampleSize;
}
MEDIA_FRAME* CZelSample::GetMediaFrame() {
  return m_pMediaFrame;
}
std::int64_t CZelSample::GetDuration() {
  return m_llDuration;
}

std::int64_t CZelSample::GetCurrentPTS() {
  if (m_pMediaFrame == nullptr || m_pMediaFrame->nStreamType == AV_STREAM_NONE) return -1;
  return m_pMediaFrame->llPTS;
}

std::int64_t CZelSample::GetCurrentDTS() {
  if (m_pMediaFrame == nullptr || m_pMediaFrame->nStreamType == AV_STREAM_NONE) return -1;
  return m_pMediaFrame->llDTS;
}

HRESULT CZelSample::SetCurrentPTS(long long pts) {
  m_llPTS = pts;
  return S_OK;
}
HRESULT CZelSample::SetCurrentDTS(long long dts) {
  m_llDTS = dts;
  return S_OK;
}
HRESULT CZelSample::SetDuration(long long duration) {
  m_llDuration = duration;
  return S_OK;
}

HRESULT CZelSample::ReturnSampleBack2Buffer() {
  m_eSampleType = SAMPLE_TYPE_NONE;
  return m_pFrameBuffer != nullptr ? m_pFrameBuffer->ReturnSample(this) : E_ZEL_STATE;
}

CZelSample* CZelSample::GetCompareFrame() {
  return m_pCompareFrame;
}
HRESULT CZelSample::SetCompareFrame(CZelSample* sample) {
  m_pCompareFrame = sample;
  return S_OK;
}

HRESULT CZelSample::SetFrameBuffer(CFrameBuffer* pool) {
  if (pool == nullptr) return E_ZEL_STATE;
  // Taken before the old one is given back: both may be the same pool's last reference.
  pool->AddRef();
  if (m_pFrameBuffer != nullptr) m_pFrameBuffer->Release();
  m_pFrameBuffer = pool;
  return S_OK;
}

HRESULT CZelSample::FrameAttach(MEDIA_FRAME* frame) {
  // Also for the same address: the caller may have freed that frame and made another one there.
  m_pBlock = nullptr;
  m_nBlockSize = 0;
  m_pMediaFrame = frame;
  return S_OK;
}

void CZelSample::FreeMediaFrame() {
  if (m_pMediaFrame != nullptr) {
    MEDIA_FRAME& frame = *m_pMediaFrame;
    if (frame.nStreamType != AV_STREAM_VIDEO && frame.nStreamType != AV_STREAM_AUDIO) assert(0);
    if (unsigned char** block = GetBlock(frame); block != nullptr) delete[] * block;
    delete m_pMediaFrame;
    m_pMediaFrame = nullptr;
  }
  m_pBlock = nullptr;
  m_nBlockSize = 0;
  m_nSampleSize = 0;
  m_nDataSize = 0;
  m_llPTS = 0;
  m_llDTS = 0;
  m_llDuration = 0;
  m_bKeyFrame = 0;
}

HRESULT CZelSample::RefreshSampleInfo() {
  if (m_pMediaFrame == nullptr) return E_ZEL_STATE;
  const MEDIA_FRAME& frame = *m_pMediaFrame;
  m_llPTS = frame.llPTS;
  m_llDTS = frame.llDTS;

  const auto takeSizes = [this](std::int32_t dataSize, std::int32_t bufferSize) {
    if (dataSize < 0 || bufferSize < 0) return E_ZEL_STATE;
    m_nDataSize = static_cast<std::uint32_t>(dataSize);
    m_nSampleSize = static_cast<std::uint32_t>(bufferSize);
    return S_OK;
  };
  if (m_eStreamType == AV_STREAM_AUDIO) {
    m_bKeyFrame = 1;
    return takeSizes(frame.audio.nDataSize, frame.audio.nBufferSize);
  }
  if (m_eStreamType != AV_STREAM_VIDEO) assert(0);

  m_bKeyFrame = frame.bKeyFrame != 0 ? 1 : 0;
  switch (frame.video.nImageFormat) {
    case IMAGE_FORMAT_BUFFER:
      return takeSizes(frame.video.buffer.nDataSize, frame.video.buffer.nBufferSize);
    case IMAGE_FORMAT_YUV: {
      PackedSizes sizes;
      if (!GetPackedSizes(frame.video.yuv.nWidth, frame.video.yuv.nHeight, sizes)) {
        return E_ZEL_STATE;
      }
      m_nDataSize = sizes.total;
      m_nSampleSize = std::max(m_nSampleSize, sizes.total);
      return S_OK;
    }
    case IMAGE_FORMAT_RGB:
      assert(0);
      [[fallthrough]];
    default:
      return E_ZEL_STATE;
  }
}

// Replaces frame and memory in one step, after everything that can fail.
void CZelSample::AdoptFrame(std::unique_ptr<MEDIA_FRAME> frame,
                            std::unique_ptr<unsigned char[]> block, std::uint32_t size) {
  FreeMediaFrame();
  m_pMediaFrame = frame.release();
  m_pBlock = block.release();
  m_nBlockSize = m_pBlock != nullptr ? size : 0;
  m_nSampleSize = size;
}

HRESULT CZelSample::SetSampleSize(unsigned long nSize) {
  if (m_nSampleSize >= nSize) return S_OK;
  if (nSize > kMaxDataSize) return E_ZEL_STATE;
  const auto size = static_cast<std::uint32_t>(nSize);
  auto frame = std::make_unique<MEDIA_FRAME>();
  frame->nStreamType = m_eStreamType;
  frame->nFrameType = m_eFrameType;
  std::unique_ptr<unsigned char[]> block;
  HRESULT result = S_OK;
  if (m_eStreamType == AV_STREAM_AUDIO) {
    block.reset(new unsigned char[size]);
    frame->audio.pData = block.get();
    frame->audio.nBufferSize = static_cast<std::int32_t>(size);
  } else if (m_eStreamType == AV_STREAM_VIDEO) {
    switch (m_eImageFormat) {
      case IMAGE_FORMAT_RGB:
        block.reset(new unsigned char[size]);
        frame->video.nImageFormat = IMAGE_FORMAT_RGB;
        frame->video.rgb.pBits = block.get();
        break;
      case IMAGE_FORMAT_BUFFER:
        block.reset(new unsigned char[size]);
        frame->video.nImageFormat = IMAGE_FORMAT_BUFFER;
        frame->video.buffer.pData = block.get();
        frame->video.buffer.nBufferSize = static_cast<std::int32_t>(size);
        break;
      case IMAGE_FORMAT_YUV:
        block.reset(new unsigned char[size]);
        frame->video.nImageFormat = IMAGE_FORMAT_YUV;
        frame->video.yuv.nYuvFormat = YUV_IMAGE_420P;
        frame->video.yuv.pPlane[0] = block.get();
        break;
      default:
        result = E_ZEL_STATE;
        break;
    }
  } else {
    assert(0);
  }
  AdoptFrame(std::move(frame), std::move(block), size);
  return result;
}

HRESULT CZelSample::RemallocYUVFrame(unsigned long nWidth, unsigned long nHeight,
                                     YUV_IMAGE_FORMAT eFormat) {
  if (m_eStreamType != AV_STREAM_VIDEO || m_eFrameType != FRAME_DATA_DECODED ||
      eFormat != YUV_IMAGE_420P) {
    return E_ZEL_STATE;
  }
  if (nWidth > kMaxDataSize || nHeight > kMaxDataSize) return E_ZEL_STATE;
  const std::uint64_t w = nWidth;
  const std::uint64_t h = nHeight;
  const std::uint64_t luma = w * h;
  // Not the chroma size of a packed picture: this one and the block's size are what hosts expect.
  const std::uint64_t chroma = (w + 1) * (h + 1) / 4;
  const std::uint64_t size = 2 * luma + chroma;
  if (size > std::numeric_limits<std::uint32_t>::max()) return E_ZEL_STATE;

  auto frame = std::make_unique<MEDIA_FRAME>();
  std::unique_ptr<unsigned char[]> block(new unsigned char[static_cast<std::size_t>(size)]);
  frame->nStreamType = m_eStreamType;
  frame->nFrameType = m_eFrameType;
  frame->video.nImageFormat = IMAGE_FORMAT_YUV;
  MEDIA_FRAME_YUV& yuv = frame->video.yuv;
  yuv.nYuvFormat = YUV_IMAGE_420P;
  yuv.pPlane[0] = block.get();
  yuv.pPlane[1] = block.get() + luma;
  yuv.pPlane[2] = block.get() + luma + chroma;
  yuv.nWidth = static_cast<std::int32_t>(w);
  yuv.nHeight = static_cast<std::int32_t>(h);
  yuv.nStride[0] = static_cast<std::int32_t>(w);
  yuv.nStride[1] = yuv.nStride[2] = static_cast<std::int32_t>((w + 1) / 2);
  frame->llPTS = -1;
  frame->llDTS = -1;
  AdoptFrame(std::move(frame), std::move(block), static_cast<std::uint32_t>(size));
  return S_OK;
}

HRESULT CZelSample::SetVideoImageFormat(IMAGE_FORMAT format) {
  m_eImageFormat = format;
  return S_OK;
}

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
    const std::int32_t format = src->video.nImageFormat;
    if (format != IMAGE_FORMAT_RGB && format != IMAGE_FORMAT_YUV && format != IMAGE_FORMAT_BUFFER) {
      assert(0);
    }
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

// Makes sure that this frame, in the layout of `from`, has room for `size` bytes, whoever allocated
// what it has. Returns the block that it replaced, to be freed once the source, which may lie in
// it, is copied.
std::unique_ptr<unsigned char[]> CZelSample::MakeRoom(const MEDIA_FRAME& from, std::uint32_t size) {
  MEDIA_FRAME& to = *m_pMediaFrame;
  const bool isVideo = from.nStreamType == AV_STREAM_VIDEO;
  const bool isRgb = isVideo && from.video.nImageFormat == IMAGE_FORMAT_RGB;

  // A producer or FrameAttach may have put in what this sample did not allocate, perhaps at the
  // same address; of that the record alone knows the size.
  unsigned char** const slot = GetBlock(to);
  unsigned char* const block = slot != nullptr ? *slot : nullptr;
  std::uint32_t room = 0;
  if (block != nullptr) {
    room = GetStatedCapacity(to);
    const bool hasBufferSize = !isVideo || to.video.nImageFormat == IMAGE_FORMAT_BUFFER;
    if (block == m_pBlock) room = hasBufferSize ? std::min(room, m_nBlockSize) : m_nBlockSize;
  }

  std::uint32_t freshSize = 0;
  if (size > m_nSampleSize) {
    freshSize = isRgb ? 2 * size : size;
  } else if (size > room && (block != nullptr || slot == nullptr || isRgb)) {
    freshSize = m_nSampleSize;
  }
  std::unique_ptr<unsigned char[]> fresh;
  if (freshSize != 0) fresh.reset(new unsigned char[freshSize]);

  if (isVideo && to.video.nImageFormat != from.video.nImageFormat) {
    std::memset(&to.video, 0, sizeof(to.video));
    to.video.nImageFormat = from.video.nImageFormat;
    *GetBlock(to) = block;
    if (to.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
      to.video.buffer.nBufferSize = static_cast<std::int32_t>(std::min(room, kMaxDataSize));
    }
  }
  if (fresh == nullptr) return nullptr;

  m_nSampleSize = freshSize;
  m_nBlockSize = freshSize;
  m_pBlock = fresh.release();
  const auto bufferSize = static_cast<std::int32_t>(std::min(freshSize, kMaxDataSize));
  if (!isVideo) {
    to.audio.nBufferSize = bufferSize;
    to.audio.nDataSize = std::min(to.audio.nDataSize, bufferSize);
  } else if (to.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
    to.video.buffer.nBufferSize = bufferSize;
    to.video.buffer.nDataSize = std::min(to.video.buffer.nDataSize, bufferSize);
  } else if (to.video.nImageFormat == IMAGE_FORMAT_YUV) {
    std::fill_n(to.video.yuv.pPlane, 4, nullptr);
  }
  *GetBlock(to) = m_pBlock;
  return std::unique_ptr<unsigned char[]>(block);
}

// Brings the data of `from`, `size` bytes of this frame's stream type, into this frame. Nothing is
// changed when memory is short.
void CZelSample::CopyData(const MEDIA_FRAME& from, std::uint32_t size) {
  MEDIA_FRAME& to = *m_pMediaFrame;
  if (from.nStreamType == AV_STREAM_AUDIO) {
    const auto replaced = MakeRoom(from, size);
    if (from.audio.pData == nullptr || to.audio.pData == nullptr) return;
    std::memmove(to.audio.pData, from.audio.pData, size);
    to.audio.nDataSize = from.audio.nDataSize;
    to.audio.nBitsPerSample = from.audio.nBitsPerSample;
    to.audio.nChannels = from.audio.nChannels;
    to.audio.nSampleRate = from.audio.nSampleRate;
    m_nDataSize = size;
    return;
  }

  switch (from.video.nImageFormat) {
    case IMAGE_FORMAT_BUFFER: {
      const auto replaced = MakeRoom(from, size);
      const MEDIA_FRAME_BUFFER& source = from.video.buffer;
      MEDIA_FRAME_BUFFER& target = to.video.buffer;
      if (source.pData == nullptr || target.pData == nullptr) break;
      std::memmove(target.pData, source.pData, size);
      target.nDataSize = source.nDataSize;
      m_nDataSize = size;
      break;
    }
    case IMAGE_FORMAT_YUV:
      CopyPlanes(from, size);
      break;
    case IMAGE_FORMAT_RGB: {
      const auto replaced = MakeRoom(from, size);
      m_nDataSize = size;
      to.video.rgb.bmiHeader = from.video.rgb.bmiHeader;
      if (size != 0) std::memmove(to.video.rgb.pBits, from.video.rgb.pBits, size);
      break;
    }
    default:
      // Under a format that is not known nothing would find the memory again.
      if (unsigned char** block = GetBlock(to); block != nullptr) {
        delete[] * block;
        std::memset(&to.video, 0, sizeof(to.video));
        m_pBlock = nullptr;
        m_nBlockSize = 0;
      }
      to.video.nImageFormat = from.video.nImageFormat;
      m_nDataSize = 0;
      break;
  }
  to.bKeyFrame = from.bKeyFrame;
}

void CZelSample::CopyPlanes(const MEDIA_FRAME& from, std::uint32_t size) {
  const MEDIA_FRAME_YUV& source = from.video.yuv;
  PackedSizes sizes;
  GetPackedSizes(source.nWidth, source.nHeight, sizes);
  const std::uint32_t bytes[3] = {sizes.luma, sizes.chroma, sizes.chroma};
  const unsigned char* planes[3] = {source.pPlane[0], source.pPlane[1], source.pPlane[2]};

  // Filling one plane must not destroy the next one's source.
  std::unique_ptr<unsigned char[]> staged;
  unsigned char** const block = GetBlock(*m_pMediaFrame);
  const auto overlaps = [&](int i) { return Overlap(planes[i], bytes[i], *block, size); };
  if (block != nullptr && (overlaps(0) || overlaps(1) || overlaps(2))) {
    staged.reset(new unsigned char[size]);
    unsigned char* at = staged.get();
    for (int i = 0; i < 3; ++i) {
      if (planes[i] == nullptr) continue;
      std::memcpy(at, planes[i], bytes[i]);
      planes[i] = at;
      at += bytes[i];
    }
  }

  const auto replaced = MakeRoom(from, size);
  m_nDataSize = size;
  MEDIA_FRAME_YUV& target = m_pMediaFrame->video.yuv;
  target.nYuvFormat = source.nYuvFormat;
  const std::uint32_t room = target.pPlane[0] == m_pBlock ? m_nBlockSize : size;
  for (int i = 0; i < 3; ++i) {
    unsigned char* const to = target.pPlane[i];
    // Without the planes before it, a plane still lies where an earlier picture had it.
    if (planes[i] == nullptr || !IsInside(to, bytes[i], target.pPlane[0], room)) continue;
    std::memmove(to, planes[i], bytes[i]);
    if (i < 2) target.pPlane[i + 1] = to + bytes[i];
  }
  target.nWidth = source.nWidth;
  target.nHeight = source.nHeight;
  std::copy_n(source.nStride, 3, target.nStride);
}

HRESULT CZelSample::SetAudioPacketInfo(const int* pInfo) {
  if (pInfo == nullptr) {
    m_pAudioPacketInfo[0] = 0;
    return S_OK;
  }
  const std::int32_t count = pInfo[0];
  if (count < 0 || count == std::numeric_limits<std::int32_t>::max()) return E_ZEL_STATE;
  const std::size_t entries = static_cast<std::size_t>(count) + 1;
  // `pInfo` may lie in the table that is replaced.
  std::unique_ptr<std::int32_t[]> replaced;
  std::int32_t* table = m_pAudioPacketInfo;
  if (count > m_nAudioPacketInfoSize - 1) {
    table = new std::int32_t[entries];
    replaced.reset(m_pAudioPacketInfo);
    m_pAudioPacketInfo = table;
    m_nAudioPacketInfoSize = count + 1;
  }
  std::memmove(table, pInfo, entries * sizeof(*table));
  return S_OK;
}

const int* CZelSample::GetAudioPakcetInfo() {
  if (m_pAudioPacketInfo[0] == 0 && m_pMediaFrame != nullptr) {
    const MEDIA_FRAME& frame = *m_pMediaFrame;
    std::int32_t size = static_cast<std::int32_t>(m_nDataSize);
    if (frame.nStreamType == AV_STREAM_AUDIO) {
      size = frame.audio.nDataSize;
    } else if (frame.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
      size = frame.video.buffer.nDataSize;
    }
    m_pAudioPacketInfo[0] = 1;
    m_pAudioPacketInfo[1] = size;
  }
  return m_pAudioPacketInfo;
}

HRESULT CZelSample::SetSubStreamString(const wchar_t* text) {
  if (text == nullptr) {
    m_pSubStreamString[0] = L'\0';
    return S_OK;
  }
  const std::size_t length = std::wcslen(text);
  if (length > static_cast<std::size_t>(kMaxDataSize - kSubStreamStringStep)) return E_ZEL_STATE;
  if (length >= static_cast<std::size_t>(m_nSubStreamStringSize)) {
    const std::size_t size = length + kSubStreamStringStep;
    auto* buffer = new wchar_t[size];
    delete[] m_pSubStreamString;
    m_pSubStreamString = buffer;
    m_nSubStreamStringSize = static_cast<std::int32_t>(size);
  }
  // `text` may lie in the buffer; then it fits and no buffer was replaced.
  std::wmemmove(m_pSubStreamString, text, length + 1);
  return S_OK;
}

const wchar_t* CZelSample::GetSubStreamString() {
  return m_pSubStreamString;
}
