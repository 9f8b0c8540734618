// The decoder manager, which is what the module's class factory makes, and the decoders that it
// hands out.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kernaldec/file/Programs.h"
#include "media/MediaFile.h"
#include "zel/base/Component.h"
#include "zel/compositor/MediaStream.h"
#include "zel/platform/DecoderManager.h"

namespace zel::kernaldec {

/// Opens every file anew and holds no state. Any thread may call, several at once.
class MediaDecoderMgr final : public Component<IMediaDecoderMgr> {
 public:
  using Component::Component;

  /// @return S_OK; E_POINTER; E_INVALIDARG when the file cannot be opened or has no stream of the
  ///   ids chosen; E_OUTOFMEMORY
  HRESULT CreateDecoder(const wchar_t* fileName, int reserved, DecoderSelection* selection,
                        int kind, IMediaDecoder** ppDecoder) override;
  /// @return S_OK; E_POINTER; E_INVALIDARG when the file cannot be opened; E_OUTOFMEMORY
  HRESULT OpenMediaInfo(const wchar_t* fileName, int kind, IMediaInfo** ppInfo) override;
};

/// An opened file. Each stream opens the file for itself, so that streams can be pulled at
/// different speeds and on different threads. A stream is made on the first request; later requests
/// get the same one. Any thread may call, several at once.
class MediaDecoder final : public Component<IMediaDecoder> {
 public:
  /// @param programs those of `file`; `selection` refers to them
  MediaDecoder(std::unique_ptr<media::MediaFile> file, std::vector<Program> programs,
               const Selection& selection);

  /// @return S_OK; E_POINTER; E_FAIL when the file has no such stream or cannot decode it;
  ///   E_OUTOFMEMORY
  HRESULT GetVideoStream(IMediaStream** ppStream) override;
  /// As GetVideoStream.
  HRESULT GetAudioStream(IMediaStream** ppStream) override;

 private:
  std::unique_ptr<media::MediaFile> TakeFile();
  template <class Stream, class Reader>
  HRESULT GetStream(int index, Ref<IMediaStream>* stream, IMediaStream** ppStream);

  const std::string path_;
  const std::vector<Program> programs_;
  const Selection selection_;
  std::mutex mutex_;  ///< Of the members below.
  std::unique_ptr<media::MediaFile> file_;
  Ref<IMediaStream> video_;
  Ref<IMediaStream> audio_;
};

}  // namespace zel::kernaldec
