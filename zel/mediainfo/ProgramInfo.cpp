#include "zel/mediainfo/ProgramInfo.h"

#include <algorithm>
#include <memory>

#include "zel/base/Component.h"
#include "zel/base/UnknownList-inl.h"
#include "zel/platform/MediaInfoLibrary.h"

template class scombase::CUnknownList<CStreamInfo, IStreamInfo, IStreamInfos>;
template class scombase::CUnknownList<CSubPicStreamInfo, ISubPicStreamInfo, ISubPicStreamInfos>;
template class scombase::CUnknownList<CProgramInfo, IProgramInfo, IProgramInfos>;

namespace {

/// Gives back a list's reference.
void Drop(CStreamInfos*& list) {
  if (list == nullptr) return;
  list->Release();
  list = nullptr;
}

/// Makes `list` hold copies of `count` records; null when there are none.
void Rebuild(CStreamInfos*& list, const StreamInfo* records, std::int32_t count) {
  Drop(list);
  if (count <= 0 || records == nullptr) return;
  list = zel::MakeComponent<CStreamInfos>().Detach();
  for (std::int32_t i = 0; i < count; ++i) list->AddByStreamInfo(&records[i]);
}

HRESULT HandOut(CStreamInfos* list, IStreamInfos** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (list == nullptr) return E_FAIL;
  *out = zel::Ref<IStreamInfos>::Share(list).Detach();
  return S_OK;
}

}  // namespace

CStreamInfos::CStreamInfos() = default;
CStreamInfos::~CStreamInfos() = default;

HRESULT CStreamInfos::AddByStreamInfo(const StreamInfo* info) {
  if (info == nullptr) return E_POINTER;
  const auto stream = zel::MakeComponent<CStreamInfo>();
  stream->SetStreamInfo(info);
  Add(stream.get());
  return S_OK;
}

StreamInfo* CStreamInfos::AddNewStream() {
  const auto stream = zel::MakeComponent<CStreamInfo>();
  Add(stream.get());
  return stream->GetStreamInfo();
}

CSubPicStreamInfos::CSubPicStreamInfos() = default;
CSubPicStreamInfos::~CSubPicStreamInfos() = default;

HRESULT CSubPicStreamInfos::AddBySubPicStreamInfo(const SubPicStreamInfo* info) {
  if (info == nullptr) return E_POINTER;
  const auto stream = zel::MakeComponent<CSubPicStreamInfo>();
  stream->SetSubPicStreamInfo(info);
  Add(stream.get());
  return S_OK;
}

CProgramInfos::CProgramInfos() = default;
CProgramInfos::~CProgramInfos() = default;

HRESULT CProgramInfos::AddByMediaInfo(const MEDIA_FILE_INFO* info) {
  if (info == nullptr) return E_POINTER;
  if (info->programCount < 1) return S_OK;
  if (info->programs == nullptr) return E_POINTER;
  for (std::int32_t i = 0; i < info->programCount; ++i) {
    const auto program = zel::MakeComponent<CProgramInfo>();
    const HRESULT result = program->SetProgramInfo(&info->programs[i]);
    if (!ZelSucceeded(result)) return result;
    Add(program.get());
  }
  return S_OK;
}

HRESULT CProgramInfos::AddNewProgram() {
  Add(zel::MakeComponent<CProgramInfo>().get());
  return S_OK;
}

CProgramInfo::CProgramInfo() : CUnknown(nullptr) {}

CProgramInfo::~CProgramInfo() {
  FreeProgramInfo(m_pInfo);
  Drop(m_pVideoStreams);
  Drop(m_pAudioStreams);
  Drop(m_pSubPicStreams);
}

HRESULT CProgramInfo::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<IProgramInfo>::get_guid())) {
    return scombase::GetInterface(static_cast<IProgramInfo*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CProgramInfo::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CProgramInfo::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CProgramInfo::Release() {
  return GetOwner()->Release();
}

std::int32_t CProgramInfo::GetNumber() {
  return m_pInfo != nullptr ? m_pInfo->number : 0;
}
std::uint32_t CProgramInfo::GetID() {
  return m_pInfo != nullptr ? m_pInfo->id : 0;
}
double CProgramInfo::GetMediaLength() {
  return m_pInfo != nullptr ? m_pInfo->mediaLength : 0.0;
}
std::uint32_t CProgramInfo::GetBitrate() {
  return m_pInfo != nullptr ? m_pInfo->bitrate : 0;
}
std::uint32_t CProgramInfo::GetTimeStampReferenceStreamID() {
  return m_pInfo != nullptr ? m_pInfo->timeStampReferenceStreamID : 0;
}
HRESULT CProgramInfo::GetVideoStreamInfos(IStreamInfos** out) {
  return HandOut(m_pVideoStreams, out);
}
HRESULT CProgramInfo::GetAudioStreamInfos(IStreamInfos** out) {
  return HandOut(m_pAudioStreams, out);
}
HRESULT CProgramInfo::GetSubPicStreamInfos(IStreamInfos** out) {
  return HandOut(m_pSubPicStreams, out);
}

HRESULT CProgramInfo::SetProgramInfo(const ProgramInfo* info) {
  if (info == nullptr) return E_POINTER;
  FreeProgramInfo(m_pInfo);
  m_pInfo = CloneProgramInfo(info);
  const ProgramInfo none{};
  const ProgramInfo& copy = m_pInfo != nullptr ? *m_pInfo : none;
  // The copy comes from a library of the host: no more records are read than both say there are.
  Rebuild(m_pVideoStreams, copy.videoStreams,
          std::min(info->videoStreamCount, copy.videoStreamCount));
  Rebuild(m_pAudioStreams, copy.audioStreams,
          std::min(info->audioStreamCount, copy.audioStreamCount));
  Rebuild(m_pSubPicStreams, copy.subPicStreams,
          std::min(info->subPicStreamCount, copy.subPicStreamCount));
  return m_pInfo != nullptr ? S_OK : E_OUTOFMEMORY;
}

StreamInfo* CProgramInfo::AddStream(AV_STREAM_TYPE type) {
  if (type != AV_STREAM_VIDEO && type != AV_STREAM_AUDIO) return nullptr;
  CStreamInfos*& list = type == AV_STREAM_VIDEO ? m_pVideoStreams : m_pAudioStreams;
  if (list != nullptr) return list->AddNewStream();
  auto fresh = zel::MakeComponent<CStreamInfos>();
  StreamInfo* record = fresh->AddNewStream();
  list = fresh.Detach();
  return record;
}
