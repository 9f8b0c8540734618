#include "zel/sample/Sample.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>

#include "zel/base/Ids.h"
#include "zel/sample/FrameBuffer.h"
#include "zel/sample/detail/FrameMemory.h"

using namespace zel::sample;

namespace {

constexpr std::int32_t kFirstPacketInfoSize = 10;
constexpr std::int32_t kSubStreamStringStep = 1024;

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
  if (m_pFrameBuffer != nullptr) m_pFrameBuffer->Release();
  m_pFrameBuffer = pool;
  m_pFrameBuffer->AddRef();
  return S_OK;
}

HRESULT CZelSample::FrameAttach(MEDIA_FRAME* frame) {
  // Assign even if the address is the same: the caller may have freed that frame and made another
  // one there.
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

// Replaces the frame after everything that can fail. Its block holds `size` bytes.
void CZelSample::AdoptFrame(std::unique_ptr<MEDIA_FRAME> frame, std::uint32_t size) {
  FreeMediaFrame();
  m_pMediaFrame = frame.release();
  m_nSampleSize = size;
}

HRESULT CZelSample::SetSampleSize(unsigned long nSize) {
  if (m_nSampleSize >= nSize) return S_OK;
  if (nSize > kMaxDataSize) return E_ZEL_STATE;
  const bool isVideo = m_eStreamType == AV_STREAM_VIDEO;
  if (!isVideo && m_eStreamType != AV_STREAM_AUDIO) assert(0);

  const auto size = static_cast<std::uint32_t>(nSize);
  auto frame = std::make_unique<MEDIA_FRAME>();
  frame->nStreamType = m_eStreamType;
  frame->nFrameType = m_eFrameType;
  if (isVideo) {
    if (!IsKnownImageFormat(m_eImageFormat)) {
      AdoptFrame(std::move(frame), size);
      return E_ZEL_STATE;
    }
    frame->video.nImageFormat = m_eImageFormat;
    if (m_eImageFormat == IMAGE_FORMAT_YUV) frame->video.yuv.nYuvFormat = YUV_IMAGE_420P;
  }
  ReplaceBlock(*frame, std::unique_ptr<unsigned char[]>(new unsigned char[size]), size);
  AdoptFrame(std::move(frame), size);
  return S_OK;
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
  // Hosts expect this chroma size, which differs from a packed picture's, and this block size.
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
  yuv.pPlane[0] = block.release();
  yuv.pPlane[1] = yuv.pPlane[0] + luma;
  yuv.pPlane[2] = yuv.pPlane[1] + chroma;
  yuv.nWidth = static_cast<std::int32_t>(w);
  yuv.nHeight = static_cast<std::int32_t>(h);
  yuv.nStride[0] = static_cast<std::int32_t>(w);
  yuv.nStride[1] = yuv.nStride[2] = static_cast<std::int32_t>((w + 1) / 2);
  frame->llPTS = -1;
  frame->llDTS = -1;
  AdoptFrame(std::move(frame), static_cast<std::uint32_t>(size));
  return S_OK;
}

HRESULT CZelSample::SetVideoImageFormat(IMAGE_FORMAT format) {
  m_eImageFormat = format;
  return S_OK;
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
