// The decoder manager and the decoders it makes.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kernaldec/Guard.h"
#include "kernaldec/file/Programs.h"
#include "kernaldec/picture/VideoStream.h"
#include "kernaldec/sound/AudioStream.h"
#include "media/MediaFile.h"
#include "zel/base/Component.h"
#include "zel/compositor/MediaStream.h"
#include "zel/platform/DecoderManager.h"

namespace zel::kernaldec {

/// Holds no state: every file is opened anew.
class MediaDecoderMgr final : public Component<IMediaDecoderMgr> {
 public:
  explicit MediaDecoderMgr(IUnknown* outer) : Component(outer) {}

  /// @return S_OK; E_POINTER; E_INVALIDARG when the file cannot be opened or has no stream of the
  ///   ids chosen; E_OUTOFMEMORY.
  HRESULT CreateDecoder(const wchar_t* fileName, int reserved, DecoderSelection* selection,
                        int kind, IMediaDecoder** ppDecoder) override;
  /// @return S_OK; E_POINTER; E_INVALIDARG when the file cannot be opened; E_OUTOFMEMORY.
  HRESULT OpenMediaInfo(const wchar_t* fileName, int kind, IMediaInfo** ppInfo) override;
};

/// Each stream reads the file on its own, so that streams can be pulled at different speeds and on
/// different threads. A stream is made when it is first asked for; asked again, a decoder hands out
/// the same one. Any thread may call.
class MediaDecoder final : public Component<IMediaDecoder> {
 public:
  MediaDecoder(std::unique_ptr<media::MediaFile> file, std::vector<Program> programs,
               Selection selection);
  ~MediaDecoder() override;

  HRESULT GetVideoStream(IMediaStream** ppStream) override;
  HRESULT GetAudioStream(IMediaStream** ppStream) override;

 private:
  /// The file opened at first, or opened again when a stream has taken that.
  std::unique_ptr<media::MediaFile> TakeFile();

  const std::string path_;
  const std::vector<Program> programs_;
  const Selection selection_;
  std::mutex mutex_;
  std::unique_ptr<media::MediaFile> file_;
  Ref<AudioStream> audio_;
  Ref<VideoStream> video_;
};

}  // namespace zel::kernaldec
