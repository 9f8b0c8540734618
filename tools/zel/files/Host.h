// The command as a host: how it finds the compositor and opens decoded sound.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kernaldec/DecodedAudio.h"
#include "tools/zel/files/SoundFormat.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/COMSupport.h"
#include "zel/platform/DecoderManager.h"

namespace zel::tool {

/// Owns one reference.
template <class T>
class ComPtr {
 public:
  ComPtr() = default;
  /// Takes over the caller's reference.
  explicit ComPtr(T* object) : object_(object) {}
  ComPtr(const ComPtr& other) : object_(other.object_) {
    if (object_ != nullptr) object_->AddRef();
  }
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ComPtr() {
    if (object_ != nullptr) object_->Release();
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  /// For an out-parameter; drops what was held.
  T** Receive() {
    *this = {};
    return &object_;
  }
  void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }

 private:
  T* object_ = nullptr;
};

/// A new compositor, made by the library in the command's own folder.
/// @throws Failure
ComPtr<IAudioCompositor> MakeCompositor();

/// The platform's decoder manager. @throws Failure
ComPtr<IMediaDecoderMgr> MakeDecoderManager();

/// Describes a file. @throws Failure that says why not
ComPtr<IMediaInfo> OpenMedia(IMediaDecoderMgr* manager, const std::string& path);

/// The programs of a description, which may have none.
std::vector<ComPtr<IProgramInfo>> ProgramsOf(IMediaInfo* media);

enum class StreamKind { kVideo, kAudio, kSubPicture };
inline constexpr StreamKind kStreamKinds[] = {StreamKind::kVideo, StreamKind::kAudio,
                                              StreamKind::kSubPicture};

/// A program's streams of one kind.
std::vector<ComPtr<IStreamInfo>> StreamsOf(IProgramInfo* program, StreamKind kind);

/// An id as it is shown and typed: "0x10002" has program 1 in bits 16 to 23, stream 2 below.
std::string IdText(std::uint32_t id);

/// Chooses an audio stream of `path`: by its id, which tells its program, too; the first one of
/// a program; or, with neither, none in particular.
/// @throws Failure, with a list of what there is, for ids that the file does not have
DecoderSelection SelectSound(IMediaDecoderMgr* manager, const std::string& path,
                             std::optional<std::uint32_t> program,
                             std::optional<std::uint32_t> stream);

/// A decoded audio stream of a file.
struct DecodedSound {
  std::string path;
  ComPtr<IMediaStream> stream;
  ComPtr<IDecodedAudio> controls;
  ComPtr<IStreamInfo> info;

  SoundFormat format() const {
    return {info->GetAudioInfo()->sampleRate, info->GetAudioInfo()->channels};
  }
  /// Asks the stream again what it is, after a change.
  void Refresh();
  /// @throws Failure when the sound read so far is not what the file should have held
  void CheckStatus() const;
};

/// Opens sound of `path`: the stream that `selection` names, or the first one.
/// @throws Failure
DecodedSound OpenSound(IMediaDecoderMgr* manager, const std::string& path,
                       DecoderSelection selection = {});

/// Opens audio stream `number` of `path`, counted from 0 over all programs as `zel info` lists
/// them, each stream once.
/// @throws Failure
DecodedSound OpenNumberedSound(IMediaDecoderMgr* manager, const std::string& path, int number);

/// A received string as UTF-8; frees it.
std::string TakeText(wchar_t* text);

}  // namespace zel::tool
