// The command as a host: how it finds the compositor and opens decoded sound.
#pragma once

#include <string>
#include <utility>

#include "platform/kernaldec/DecodedAudio.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/StreamInfo.h"
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

/// A decoded audio stream of a file.
struct DecodedSound {
  std::string path;
  ComPtr<IMediaStream> stream;
  ComPtr<IDecodedAudio> controls;
  ComPtr<IStreamInfo> info;

  AudioInfo format() const { return *info->GetAudioInfo(); }
  /// Asks the stream again what it is, after a change.
  void Refresh();
  /// @throws Failure when the sound read so far is not what the file should have held
  void CheckStatus() const;
};

/// Opens sound of `path`: the stream that `selection` names, or the first one.
/// @throws Failure
DecodedSound OpenSound(IMediaDecoderMgr* manager, const std::string& path,
                       DecoderSelection selection = {});

/// A received string as UTF-8; frees it.
std::string TakeText(wchar_t* text);

}  // namespace zel::tool
