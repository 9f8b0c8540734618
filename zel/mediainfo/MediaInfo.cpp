#include "zel/mediainfo/MediaInfo.h"

#include <cwchar>
#include <iterator>
#include <new>

#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/mediainfo/detail/SysStrings.h"

namespace {

using zel::Ref;

enum class Streams { kVideoAndAudio, kAll };

/// Calls `visit` with each stream of `program`, list after list. Returns the first stream for which
/// it returns true (borrowed from its list), or null.
template <class Visit>
CStreamInfo* VisitStreams(IProgramInfo* program, Streams which, const Visit& visit) {
  Ref<IStreamInfos> lists[3];
  program->GetVideoStreamInfos(lists[0].Receive());
  program->GetAudioStreamInfos(lists[1].Receive());
  if (which == Streams::kAll) program->GetSubPicStreamInfos(lists[2].Receive());
  for (const Ref<IStreamInfos>& list : lists) {
    const int count = list ? list->GetCount() : 0;
    for (int i = 0; i < count; ++i) {
      Ref<IStreamInfo> item;
      list->GetItem(i, item.Receive());
      // Lists of streams hold nothing else.
      auto* stream = static_cast<CStreamInfo*>(item.get());
      if (stream != nullptr && visit(*stream)) return stream;
    }
  }
  return nullptr;
}

/// The same for each program of a list, which may be null.
template <class Visit>
CStreamInfo* VisitPrograms(IProgramInfos* programs, const Visit& visit) {
  const int count = programs != nullptr ? programs->GetCount() : 0;
  for (int i = 0; i < count; ++i) {
    Ref<IProgramInfo> program;
    programs->GetItem(i, program.Receive());
    if (!program) continue;
    if (CStreamInfo* found = visit(program.get()); found != nullptr) return found;
  }
  return nullptr;
}

bool IsSelected(CStreamInfo& stream) {
  return stream.IsStreamSelected() != 0;
}

}  // namespace

CMediaInfo::CMediaInfo() : CUnknown(nullptr) {}

CMediaInfo::CMediaInfo(IUnknown* pUnkOuter, long* phr) : CUnknown(pUnkOuter, phr) {}

CMediaInfo::~CMediaInfo() {
  if (m_pPrograms != nullptr) m_pPrograms->Release();
  CMediaInfo::RemoveAllTrimSegments();
}

HRESULT CMediaInfo::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, uuidof_class<IMediaInfo>::get_guid())) {
    return scombase::GetInterface(static_cast<IMediaInfo*>(this), ppv);
  }
  if (ZelIsEqualGUID(riid, uuidof_class<IMediaSetting>::get_guid())) {
    return scombase::GetInterface(static_cast<IMediaSetting*>(this), ppv);
  }
  if (ZelIsEqualGUID(riid, uuidof_class<IMediaSettingInternal>::get_guid())) {
    return scombase::GetInterface(static_cast<IMediaSettingInternal*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMediaInfo::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CMediaInfo::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CMediaInfo::Release() {
  return GetOwner()->Release();
}

std::uint32_t CMediaInfo::GetFourCC() {
  return m_fourCC;
}

HRESULT CMediaInfo::GetFileName(wchar_t** out) {
  return out != nullptr ? zel::CopyText(m_fileName, out) : E_POINTER;
}

HRESULT CMediaInfo::GetDescription(wchar_t** out) {
  return out != nullptr ? zel::CopyText(m_description, out) : E_POINTER;
}

double CMediaInfo::GetMediaLength() {
  return m_mediaLength;
}
std::uint32_t CMediaInfo::GetBitrate() {
  return m_bitrate;
}

HRESULT CMediaInfo::GetIPrograms(IProgramInfos** out) {
  if (out == nullptr) return E_POINTER;
  if (m_pPrograms == nullptr) return S_FALSE;
  *out = zel::Ref<IProgramInfos>::Share(m_pPrograms).Detach();
  return S_OK;
}

std::int32_t CMediaInfo::IsFrameRateConstant() {
  return m_frameRateConstant;
}
std::int32_t CMediaInfo::GetSeekCapacity() {
  return m_seekCapacity;
}

std::uint32_t CMediaInfo::GetTrimSegmentNumber() {
  return static_cast<std::uint32_t>(m_trimSegments.Count());
}

STrimSegment CMediaInfo::GetTrimSegment(unsigned long index) {
  const STrimSegment* segment = m_trimSegments.At(index);
  return segment != nullptr ? *segment : STrimSegment{};
}

HRESULT CMediaInfo::SelectStream(unsigned long streamId, unsigned int lossless,
                                 unsigned long channelIndex) {
  StreamInfo* stream = FindStream(streamId);
  if (stream == nullptr) return S_FALSE;
  stream->selected = 1;
  stream->losslessProcess = static_cast<std::int32_t>(lossless);
  stream->channelIndex = static_cast<std::int32_t>(channelIndex);
  return S_OK;
}

std::int32_t CMediaInfo::IsStreamSelected(unsigned long streamId, unsigned int* lossless,
                                          unsigned long* channelIndex) {
  const StreamInfo* stream = FindStream(streamId);
  if (stream == nullptr) return 0;
  if (lossless != nullptr) *lossless = static_cast<unsigned int>(stream->losslessProcess);
  if (channelIndex != nullptr) *channelIndex = static_cast<unsigned long>(stream->channelIndex);
  return stream->selected;
}

HRESULT CMediaInfo::UpdateStreamSetting(unsigned long streamId, unsigned int lossless) {
  StreamInfo* stream = FindStream(streamId);
  if (stream == nullptr) return S_FALSE;
  stream->losslessProcess = static_cast<std::int32_t>(lossless);
  stream->selected = 1;
  return S_OK;
}

HRESULT CMediaInfo::ClearSelectStream(unsigned long streamId) {
  StreamInfo* stream = FindStream(streamId);
  if (stream == nullptr) return S_FALSE;
  stream->selected = 0;
  return S_OK;
}

STrimSegment CMediaInfo::AddTrimSegment(STrimSegment segment, unsigned int /*unused*/,
                                        unsigned int /*unused*/) {
  try {
    auto copy = std::make_unique<STrimSegment>(segment);
    m_trimSegments.Append(copy.get());
    (void)copy.release();
  } catch (const std::bad_alloc&) {
    // No exception crosses an interface; the number of segments tells.
  }
  return segment;
}

HRESULT CMediaInfo::RemoveAllTrimSegments() {
  while (const STrimSegment* segment = m_trimSegments.TakeFirst()) delete segment;
  return S_OK;
}

HRESULT CMediaInfo::SetStreamIdentifier(unsigned long /*streamId*/, wchar_t* /*identifier*/) {
  return E_ZEL_NOTIMPL;
}
HRESULT CMediaInfo::GetStreamIndentifier(unsigned long /*streamId*/, wchar_t** /*out*/) {
  return E_ZEL_NOTIMPL;
}

unsigned char* CMediaInfo::GetExtraData(unsigned long streamId, unsigned long* length) {
  if (length == nullptr) return nullptr;
  const StreamInfo* stream = FindStream(streamId);
  if (stream == nullptr || stream->extraDataLength == 0 || stream->extraData == nullptr) {
    return nullptr;
  }
  *length = stream->extraDataLength;
  return stream->extraData;
}

HRESULT CMediaInfo::UpdateAllStream(unsigned int lossless) {
  if (m_pPrograms == nullptr) return S_FALSE;
  VisitPrograms(m_pPrograms, [&](IProgramInfo* program) {
    return VisitStreams(program, Streams::kVideoAndAudio, [&](CStreamInfo& stream) {
      if (IsSelected(stream)) {
        stream.GetStreamInfo()->losslessProcess = static_cast<std::int32_t>(lossless);
      }
      return false;
    });
  });
  return S_OK;
}

HRESULT CMediaInfo::UpdateTrimSetting(IDemuxMgrExBase* /*manager*/) {
  return E_ZEL_NOTIMPL;
}

std::int32_t CMediaInfo::GetSelectStreamNumber(unsigned long programNumber) {
  const auto wanted = static_cast<std::uint32_t>(programNumber);
  const bool all = wanted == 0xFFFFFFFF;
  std::uint32_t number = 0;
  std::int32_t selected = 0;
  VisitPrograms(m_pPrograms, [&](IProgramInfo* program) -> CStreamInfo* {
    ++number;
    if (!all && number != wanted) return nullptr;
    return VisitStreams(program, Streams::kVideoAndAudio, [&](CStreamInfo& stream) {
      if (IsSelected(stream)) ++selected;
      return false;
    });
  });
  return selected;
}

std::int32_t CMediaInfo::GetOjectReference() {
  return static_cast<std::int32_t>(GetRefCount());
}

HRESULT CMediaInfo::Fill(const MEDIA_FILE_INFO* info) {
  if (info == nullptr) return E_POINTER;
  auto programs = std::make_unique<CProgramInfos>();
  const HRESULT result = programs->AddByMediaInfo(info);
  if (!ZelSucceeded(result)) return result;
  ReplacePrograms(std::move(programs));
  m_fourCC = info->fourCC;
  std::wmemcpy(m_fileName, info->fileName, std::size(m_fileName));
  std::wmemcpy(m_description, info->description, std::size(m_description));
  m_mediaLength = info->mediaLength;
  m_bitrate = info->bitrate;
  m_frameRateConstant = info->frameRateConstant;
  m_seekCapacity = 1;
  return RemoveAllTrimSegments();
}

HRESULT CMediaInfo::AddProgram() {
  auto programs = std::make_unique<CProgramInfos>();
  programs->AddNewProgram();
  ReplacePrograms(std::move(programs));
  return S_OK;
}

void CMediaInfo::ReplacePrograms(std::unique_ptr<CProgramInfos> programs) {
  if (m_pPrograms != nullptr) m_pPrograms->Release();
  programs->NonDelegatingAddRef();
  m_pPrograms = programs.release();
}

StreamInfo* CMediaInfo::FindStream(unsigned long streamId) {
  CStreamInfo* found = VisitPrograms(m_pPrograms, [&](IProgramInfo* program) -> CStreamInfo* {
    if (program->GetID() != ((streamId >> 16) & 0xFF)) return nullptr;
    return VisitStreams(program, Streams::kAll, [&](CStreamInfo& stream) {
      const StreamInfo* record = stream.GetStreamInfo();
      return record != nullptr && (record->id & 0xFFFF) == (streamId & 0xFFFF);
    });
  });
  return found != nullptr ? found->GetStreamInfo() : nullptr;
}

CStreamInfo* CMediaInfo::GetStreamInfoObject(unsigned long streamId) {
  return VisitPrograms(m_pPrograms, [&](IProgramInfo* program) {
    return VisitStreams(program, Streams::kAll, [&](CStreamInfo& stream) {
      return (stream.GetID() & 0xFFFFFF) == (streamId & 0xFFFFFF);
    });
  });
}
