#include "kernaldec/MediaDecoderMgr.h"

#include <utility>

#include "kernaldec/Guard.h"
#include "kernaldec/file/Describe.h"
#include "kernaldec/picture/VideoStream.h"
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
    const std::optional<Selection> selected = Select(file->format(), programs, selection);
    if (!selected) return E_INVALIDARG;
    auto decoder = MakeComponent<MediaDecoder>(std::move(file), std::move(programs), *selected);
    *ppDecoder = decoder.Detach();
    return S_OK;
  });
}

HRESULT MediaDecoderMgr::OpenMediaInfo(const wchar_t* fileName, int /*kind*/, IMediaInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  if (fileName == nullptr) return E_POINTER;
  return Guarded([&] {
    const std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(media::ToUtf8(fileName));
    if (file == nullptr || file->format()->nb_streams == 0) return E_INVALIDARG;
    auto info = MakeComponent<CMediaInfo>();
    const HRESULT result = FillMediaInfo(*file, info.get());
    if (result == S_OK) *ppInfo = info.Detach();
    return result;
  });
}

MediaDecoder::MediaDecoder(std::unique_ptr<media::MediaFile> file, std::vector<Program> programs,
                           const Selection& selection)
    : path_(file->path()),
      programs_(std::move(programs)),
      selection_(selection),
      file_(std::move(file)) {}

/// The file that is already open, for the first stream that asks; another opening for the next.
std::unique_ptr<media::MediaFile> MediaDecoder::TakeFile() {
  return file_ != nullptr ? std::move(file_) : media::MediaFile::Open(path_);
}

template <class Stream, class Reader>
HRESULT MediaDecoder::GetStream(int index, Ref<IMediaStream>* stream, IMediaStream** ppStream) {
  if (ppStream == nullptr) return E_POINTER;
  *ppStream = nullptr;
  if (index < 0) return E_FAIL;
  return Guarded([&] {
    const std::lock_guard lock(mutex_);
    if (!*stream) {
      std::unique_ptr<media::MediaFile> file = TakeFile();
      if (file == nullptr) return E_FAIL;
      std::unique_ptr<Reader> reader = Reader::Open(std::move(file), index);
      if (reader == nullptr) return E_FAIL;
      const Program& program = programs_[static_cast<std::size_t>(selection_.program)];
      *stream = MakeComponent<Stream>(std::move(reader), program);
    }
    stream->CopyTo(ppStream);
    return S_OK;
  });
}

HRESULT MediaDecoder::GetVideoStream(IMediaStream** ppStream) {
  return GetStream<VideoStream, PictureReader>(selection_.video, &video_, ppStream);
}

HRESULT MediaDecoder::GetAudioStream(IMediaStream** ppStream) {
  return GetStream<AudioStream, AudioReader>(selection_.audio, &audio_, ppStream);
}

}  // namespace zel::kernaldec
