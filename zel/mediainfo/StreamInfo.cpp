#include "zel/mediainfo/StreamInfo.h"

#include <cstring>
#include <limits>
#include <memory>

#include "zel/base/Ids.h"
#include "zel/mediainfo/detail/SysStrings.h"

namespace {

StreamInfo* NewStreamInfo() {
  auto* info = new StreamInfo{};
  info->id = 0xFFFFFFFF;
  info->state = -1;
  info->reserved0 = 2;
  info->sourceScanType = 2;
  info->channelIndex = -1;
  return info;
}

void DeleteStreamInfo(StreamInfo* info) {
  if (info == nullptr) return;
  delete[] info->extraData;
  delete info;
}

}  // namespace

CStreamInfo::CStreamInfo() : CUnknown(nullptr), m_pInfo(NewStreamInfo()) {}

CStreamInfo::CStreamInfo(IUnknown* pUnkOuter, long* phr)
    : CUnknown(pUnkOuter, phr), m_pInfo(nullptr) {}

CStreamInfo::~CStreamInfo() {
  DeleteStreamInfo(m_pInfo);
  while (SStreamExtraData* entry = m_extraList.TakeFirst()) {
    delete[] entry->data;
    delete entry;
  }
}

HRESULT CStreamInfo::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<IStreamInfo>::get_guid())) {
    return scombase::GetInterface(static_cast<IStreamInfo*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CStreamInfo::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CStreamInfo::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CStreamInfo::Release() {
  return GetOwner()->Release();
}

std::int32_t CStreamInfo::GetType() {
  return m_pInfo != nullptr ? m_pInfo->type : 0;
}
std::uint32_t CStreamInfo::GetID() {
  return m_pInfo != nullptr ? m_pInfo->id : 0;
}
std::uint32_t CStreamInfo::GetFourCC() {
  return m_pInfo != nullptr ? m_pInfo->fourCC : 0;
}
std::int32_t CStreamInfo::GetState() {
  return m_pInfo != nullptr ? m_pInfo->state : -1;
}

HRESULT CStreamInfo::GetName(wchar_t** ppName) {
  if (ppName == nullptr) return E_POINTER;
  if (m_pInfo == nullptr) return E_FAIL;
  return zel::CopyText(m_pInfo->name, ppName);
}

HRESULT CStreamInfo::GetDescription(wchar_t** ppDescription) {
  if (ppDescription == nullptr) return E_POINTER;
  if (m_pInfo == nullptr) return E_FAIL;
  return zel::CopyText(m_pInfo->description, ppDescription);
}

double CStreamInfo::GetLength() {
  return m_pInfo != nullptr ? m_pInfo->length : 0.0;
}
std::uint32_t CStreamInfo::GetBitRate() {
  return m_pInfo != nullptr ? m_pInfo->bitRate : 0;
}
AudioInfo* CStreamInfo::GetAudioInfo() {
  return m_pInfo != nullptr ? &m_pInfo->audioInfo : nullptr;
}
VideoInfo* CStreamInfo::GetVideoInfo() {
  return m_pInfo != nullptr ? &m_pInfo->videoInfo : nullptr;
}
VideoInfo* CStreamInfo::GetVideoSrcInfo() {
  return m_pInfo != nullptr ? &m_pInfo->videoSrcInfo : nullptr;
}
std::int64_t CStreamInfo::GetStartPTS() {
  return m_pInfo != nullptr ? m_pInfo->startPTS : 0;
}
std::int64_t CStreamInfo::GetPTSOffset() {
  return m_pInfo != nullptr ? m_pInfo->ptsOffset : 0;
}
std::int32_t CStreamInfo::GetSourceScanType() {
  return m_pInfo != nullptr ? m_pInfo->sourceScanType : 2;
}
std::uint32_t CStreamInfo::GetStreamPID() {
  return m_pInfo != nullptr ? m_pInfo->streamPID : 0;
}
std::int32_t CStreamInfo::IsStreamSelected() {
  return m_pInfo != nullptr ? m_pInfo->selected : 0;
}
std::int32_t CStreamInfo::IsLosslessProcess() {
  return m_pInfo != nullptr ? m_pInfo->losslessProcess : 0;
}
std::int32_t CStreamInfo::GetChannelIndex() {
  return m_pInfo != nullptr ? m_pInfo->channelIndex : -1;
}
std::int64_t CStreamInfo::GetStreamDelay() {
  return GetPTSOffset();
}
std::uint32_t CStreamInfo::GetExtraDataLength() {
  return m_pInfo != nullptr ? m_pInfo->extraDataLength : 0;
}
unsigned char* CStreamInfo::GetExtraData() {
  return m_pInfo != nullptr ? m_pInfo->extraData : nullptr;
}
std::int64_t CStreamInfo::GetFirstPacketPos() {
  return m_pInfo != nullptr ? m_pInfo->firstPacketPos : 0;
}
std::uint32_t CStreamInfo::GetStreamIndex() {
  return m_pInfo != nullptr ? m_pInfo->streamIndex : 0;
}

std::uint32_t CStreamInfo::GetExtraDataCount() {
  return static_cast<std::uint32_t>(m_extraList.Count());
}

SStreamExtraData* CStreamInfo::GetExtraData(unsigned long index) {
  return m_extraList.At(index);
}

HRESULT CStreamInfo::GetLanguageDesc(wchar_t** ppLanguage) {
  if (ppLanguage == nullptr) return E_POINTER;
  if (m_pInfo == nullptr) return E_FAIL;
  return zel::CopyText(m_pInfo->languageDesc, ppLanguage);
}

std::int32_t CStreamInfo::GetLosslessCapacity() {
  return m_pInfo != nullptr ? m_pInfo->losslessCapacity : 0;
}
std::int32_t CStreamInfo::GetProfileValue() {
  return m_pInfo != nullptr ? m_pInfo->profileValue : 0;
}
std::int32_t CStreamInfo::GetLevelValue() {
  return m_pInfo != nullptr ? m_pInfo->levelValue : 0;
}
std::int32_t CStreamInfo::GetMaxBFrames() {
  return m_pInfo != nullptr ? m_pInfo->maxBFrames : 0;
}

int CStreamInfo::SetStreamInfo(const StreamInfo* info) {
  if (info == nullptr) return 0;
  // The copy is complete before the old record goes: `info` may be that record.
  auto copy = std::make_unique<StreamInfo>(*info);
  copy->extraData = nullptr;
  copy->extraDataLength = 0;
  if (info->extraDataLength != 0 && info->extraData != nullptr) {
    copy->extraData = new unsigned char[info->extraDataLength];
    copy->extraDataLength = info->extraDataLength;
    std::memcpy(copy->extraData, info->extraData, info->extraDataLength);
  }
  DeleteStreamInfo(m_pInfo);
  m_pInfo = copy.release();
  return 1;
}

StreamInfo* CStreamInfo::GetStreamInfo() {
  return m_pInfo;
}

int CStreamInfo::AddExtraData(STREAM_EXTRA_DATA_TYPE type, unsigned long size,
                              unsigned char* data) {
  if (data == nullptr || size == 0 || size > std::numeric_limits<std::uint32_t>::max()) return 0;
  std::unique_ptr<unsigned char[]> bytes(new unsigned char[size]);
  std::memcpy(bytes.get(), data, size);
  auto entry = std::make_unique<SStreamExtraData>();
  *entry = {type, static_cast<std::uint32_t>(size), bytes.get()};
  m_extraList.Append(entry.get());
  (void)entry.release();
  (void)bytes.release();
  return 1;
}

CSubPicStreamInfo::CSubPicStreamInfo() : CUnknown(nullptr) {}

CSubPicStreamInfo::CSubPicStreamInfo(IUnknown* pUnkOuter, long* phr) : CUnknown(pUnkOuter, phr) {}

CSubPicStreamInfo::~CSubPicStreamInfo() {
  delete m_pInfo;
}

HRESULT CSubPicStreamInfo::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<ISubPicStreamInfo>::get_guid())) {
    return scombase::GetInterface(static_cast<ISubPicStreamInfo*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CSubPicStreamInfo::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CSubPicStreamInfo::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CSubPicStreamInfo::Release() {
  return GetOwner()->Release();
}

std::int32_t CSubPicStreamInfo::GetType() {
  return m_pInfo != nullptr ? m_pInfo->type : 0;
}
std::uint32_t CSubPicStreamInfo::GetID() {
  return m_pInfo != nullptr ? m_pInfo->id : 0;
}
std::uint32_t CSubPicStreamInfo::GetFourCC() {
  return m_pInfo != nullptr ? m_pInfo->fourCC : 0;
}

HRESULT CSubPicStreamInfo::GetLanguage(wchar_t** ppLanguage) {
  if (ppLanguage == nullptr) return E_POINTER;
  *ppLanguage = nullptr;
  if (m_pInfo == nullptr) return E_FAIL;
  return zel::CopyText(m_pInfo->language, ppLanguage);
}

HRESULT CSubPicStreamInfo::GetDescription(wchar_t** ppDescription) {
  if (ppDescription == nullptr) return E_POINTER;
  *ppDescription = nullptr;
  if (m_pInfo == nullptr) return E_FAIL;
  return zel::CopyText(m_pInfo->description, ppDescription);
}

VideoInfo* CSubPicStreamInfo::GetVideoInfo() {
  return nullptr;
}
std::int64_t CSubPicStreamInfo::GetStartPTS() {
  return 0;
}
std::int64_t CSubPicStreamInfo::GetPTSOffset() {
  return 0;
}
std::uint32_t CSubPicStreamInfo::GetStreamPID() {
  return 0;
}
std::int32_t CSubPicStreamInfo::IsStreamSelected() {
  return 0;
}
std::int32_t CSubPicStreamInfo::IsLosslessProcess() {
  return 0;
}
std::int32_t CSubPicStreamInfo::GetChannelIndex() {
  return 0;
}
std::int64_t CSubPicStreamInfo::GetStreamDelay() {
  return 0;
}
std::uint32_t CSubPicStreamInfo::GetExtraDataLength() {
  return 0;
}
unsigned char* CSubPicStreamInfo::GetExtraData() {
  return nullptr;
}
std::int64_t CSubPicStreamInfo::GetFirstPacketPos() {
  return 0;
}

HRESULT CSubPicStreamInfo::SetSubPicStreamInfo(const SubPicStreamInfo* info) {
  if (info == nullptr) return E_POINTER;
  auto* copy = new SubPicStreamInfo(*info);
  delete m_pInfo;
  m_pInfo = copy;
  return S_OK;
}

SubPicStreamInfo* CSubPicStreamInfo::GetSubPicStreamInfo() {
  return nullptr;
}
