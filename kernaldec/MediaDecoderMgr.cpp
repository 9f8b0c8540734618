#include "kernaldec/MediaDecoderMgr.h"

#include <cwchar>
#include <utility>

#include "kernaldec/Guard.h"
#include "kernaldec/file/Describe.h"
#include "kernaldec/sound/AudioReader.h"
#include "kernaldec/sound/AudioStream.h"
#include "media/Utf8.h"
#include "zel/base/Ids.h"

namespace zel::kernaldec {

HRESULT CMediaDecoderMgr::NonDelegatingQueryInterface(const _GUID& riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (ZelIsEqualGUID(riid, IID_IMediaDecoderMgr)) {
    return scombase::GetInterface(static_cast<IMediaDecoderMgr*>(this), ppv);
  }
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMediaDecoderMgr::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CMediaDecoderMgr::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CMediaDecoderMgr::Release() {
  return GetOwner()->Release();
}

HRESULT CMediaDecoderMgr::CreateDecoder(const wchar_t* fileName, int /*reserved*/,
                                        DecoderSelection* selection, int /*kind*/,
                                        IMediaDecoder** ppDecoder) {
  if (ppDecoder == nullptr) return E_POINTER;
  *ppDecoder = nullptr;
  if (fileName == nullptr) return E_POINTER;
  return Guarded([&] {
    std::unique_ptr<MediaFile> file = MediaFile::Open(utf8::FromWide(fileName));
    if (file == nullptr) return E_INVALIDARG;
    std::vector<Program> programs = ListPrograms(file->format());
    Selection selected;
    if (!Select(file->format(), programs, selection, &selected)) return E_INVALIDARG;
    const auto decoder =
        MakeComponent<CMediaDecoder>(std::move(file), std::move(programs), selected);
    return scombase::GetInterface(static_cast<IMediaDecoder*>(decoder.get()),
                                  reinterpret_cast<void**>(ppDecoder));
  });
}

HRESULT CMediaDecoderMgr::OpenMediaInfo(const wchar_t* fileName, int /*kind*/,
                                        IMediaInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  if (fileName == nullptr) return E_POINTER;
  return Guarded([&] {
    const std::unique_ptr<MediaFile> file = MediaFile::Open(utf8::FromWide(fileName));
    if (file == nullptr || file->format()->nb_streams == 0) return E_INVALIDARG;
    const auto info = MakeComponent<CMediaInfo>();
    if (const HRESULT result = FillMediaInfo(*file, info.get()); result != S_OK) return result;
    return scombase::GetInterface(static_cast<IMediaInfo*>(info.get()),
                                  reinterpret_cast<void**>(ppInfo));
  });
}

CMediaDecoder::CMediaDecoder(std::unique_ptr<MediaFile> file, std::vector<Program> programs,
                             Selection selection)
    : CUnknown(nullptr),
      m_path(file->path()),
      m_programs(std::move(programs)),
      m_selection(selection),
      m_file(std::move(file)) {}

CMediaDecoder::~CMediaDecoder() = default;

HRESULT CMediaDecoder::QueryInterface(const _GUID& riid, void** ppv) {
  return GetOwner()->QueryInterface(riid, ppv);
}
ULONG CMediaDecoder::AddRef() {
  return GetOwner()->AddRef();
}
ULONG CMediaDecoder::Release() {
  return GetOwner()->Release();
}

std::unique_ptr<MediaFile> CMediaDecoder::TakeFile() {
  return m_file != nullptr ? std::move(m_file) : MediaFile::Open(m_path);
}

HRESULT CMediaDecoder::GetVideoStream(IMediaStream** ppStream) {
  if (ppStream == nullptr) return E_POINTER;
  *ppStream = nullptr;
  if (m_selection.video < 0) return E_FAIL;
  return Guarded([&] {
    const std::lock_guard lock(m_mutex);
    if (m_video == nullptr) {
      std::unique_ptr<MediaFile> file = TakeFile();
      if (file == nullptr) return E_FAIL;
      m_video =
          CVideoStream::Open(std::move(file), m_selection.video, m_programs[m_selection.program]);
      if (m_video == nullptr) return E_FAIL;
    }
    return scombase::GetInterface(static_cast<IMediaStream*>(m_video.get()),
                                  reinterpret_cast<void**>(ppStream));
  });
}

HRESULT CMediaDecoder::GetAudioStream(IMediaStream** ppStream) {
  if (ppStream == nullptr) return E_POINTER;
  *ppStream = nullptr;
  if (m_selection.audio < 0) return E_FAIL;
  return Guarded([&] {
    const std::lock_guard lock(m_mutex);
    if (m_audio == nullptr) {
      std::unique_ptr<MediaFile> file = TakeFile();
      if (file == nullptr) return E_FAIL;
      std::unique_ptr<AudioReader> reader = AudioReader::Open(std::move(file), m_selection.audio);
      if (reader == nullptr) return E_FAIL;
      m_audio = MakeComponent<CAudioStream>(std::move(reader), m_programs[m_selection.program]);
    }
    return scombase::GetInterface(static_cast<IMediaStream*>(m_audio.get()),
                                  reinterpret_cast<void**>(ppStream));
  });
}

}  // namespace zel::kernaldec
