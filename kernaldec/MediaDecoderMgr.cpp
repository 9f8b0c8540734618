#include "kernaldec/MediaDecoderMgr.h"

#include <cwchar>
#include <utility>

#include "kernaldec/Guard.h"
#include "kernaldec/file/Describe.h"
#include "kernaldec/sound/AudioReader.h"
#include "kernaldec/sound/AudioStream.h"
#include "media/Utf8.h"

namespace zel::kernaldec {

HRESULT MediaDecoderMgr::CreateDecoder(const wchar_t* fileName, int /*reserved*/,
                                       DecoderSelection* selection, int /*kind*/,
                                       IMediaDecoder** ppDecoder) {
  if (ppDecoder == nullptr) return E_POINTER;
  *ppDecoder = nullptr;
  if (fileName == nullptr) return E_POINTER;
  return Guarded([&] {
    std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(media::ToUtf8(fileName));
    if (file == nullptr) return E_INVALIDARG;
    std::vector<Program> programs = ListPrograms(file->format());
    Selection selected;
    if (!Select(file->format(), programs, selection, &selected)) return E_INVALIDARG;
    const auto decoder =
        MakeComponent<MediaDecoder>(std::move(file), std::move(programs), selected);
    return scombase::GetInterface(static_cast<IMediaDecoder*>(decoder.get()),
                                  reinterpret_cast<void**>(ppDecoder));
  });
}

HRESULT MediaDecoderMgr::OpenMediaInfo(const wchar_t* fileName, int /*kind*/, IMediaInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  if (fileName == nullptr) return E_POINTER;
  return Guarded([&] {
    const std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(media::ToUtf8(fileName));
    if (file == nullptr || file->format()->nb_streams == 0) return E_INVALIDARG;
    const auto info = MakeComponent<CMediaInfo>();
    if (const HRESULT result = FillMediaInfo(*file, info.get()); result != S_OK) return result;
    return scombase::GetInterface(static_cast<IMediaInfo*>(info.get()),
                                  reinterpret_cast<void**>(ppInfo));
  });
}

MediaDecoder::MediaDecoder(std::unique_ptr<media::MediaFile> file, std::vector<Program> programs,
                           Selection selection)
    : path_(file->path()),
      programs_(std::move(programs)),
      selection_(selection),
      file_(std::move(file)) {}

MediaDecoder::~MediaDecoder() = default;

std::unique_ptr<media::MediaFile> MediaDecoder::TakeFile() {
  return file_ != nullptr ? std::move(file_) : media::MediaFile::Open(path_);
}

HRESULT MediaDecoder::GetVideoStream(IMediaStream** ppStream) {
  if (ppStream == nullptr) return E_POINTER;
  *ppStream = nullptr;
  if (selection_.video < 0) return E_FAIL;
  return Guarded([&] {
    const std::lock_guard lock(mutex_);
    if (!video_) {
      std::unique_ptr<media::MediaFile> file = TakeFile();
      if (file == nullptr) return E_FAIL;
      video_ = VideoStream::Open(std::move(file), selection_.video, programs_[selection_.program]);
      if (!video_) return E_FAIL;
    }
    return scombase::GetInterface(static_cast<IMediaStream*>(video_.get()),
                                  reinterpret_cast<void**>(ppStream));
  });
}

HRESULT MediaDecoder::GetAudioStream(IMediaStream** ppStream) {
  if (ppStream == nullptr) return E_POINTER;
  *ppStream = nullptr;
  if (selection_.audio < 0) return E_FAIL;
  return Guarded([&] {
    const std::lock_guard lock(mutex_);
    if (!audio_) {
      std::unique_ptr<media::MediaFile> file = TakeFile();
      if (file == nullptr) return E_FAIL;
      std::unique_ptr<AudioReader> reader = AudioReader::Open(std::move(file), selection_.audio);
      if (reader == nullptr) return E_FAIL;
      audio_ = MakeComponent<AudioStream>(std::move(reader), programs_[selection_.program]);
    }
    return scombase::GetInterface(static_cast<IMediaStream*>(audio_.get()),
                                  reinterpret_cast<void**>(ppStream));
  });
}

}  // namespace zel::kernaldec
