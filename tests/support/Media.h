// Media files made by the ffmpeg command, and decoded streams of them obtained as a host does.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kernaldec/DecodedAudio.h"
#include "media/Utf8.h"
#include "zel/zel.h"

namespace zel::test {

/// One reference on an interface.
struct InterfaceRelease {
  template <class I>
  void operator()(I* face) const {
    face->Release();
  }
};
template <class I>
using Ref = std::unique_ptr<I, InterfaceRelease>;

/// A folder that goes when the test program ends.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "zel-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// Runs the ffmpeg command inside `folder`.
inline void Ffmpeg(const Folder& folder, const std::string& arguments) {
  const std::string command =
      "cd '" + folder / "" + "' && ffmpeg -nostdin -v error -y " + arguments;
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline Ref<IMediaDecoderMgr> Manager() {
  void* manager = nullptr;
  EXPECT_EQ(ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, &manager),
            S_OK);
  return Ref<IMediaDecoderMgr>(static_cast<IMediaDecoderMgr*>(manager));
}

inline HRESULT CreateDecoder(const std::string& path, DecoderSelection* selection,
                             Ref<IMediaDecoder>* decoder) {
  IMediaDecoder* out = reinterpret_cast<IMediaDecoder*>(1);
  const HRESULT result =
      Manager()->CreateDecoder(media::ToWide(path).c_str(), 0, selection, 11, &out);
  EXPECT_EQ(out != nullptr, result == S_OK);
  decoder->reset(out);
  return result;
}

/// The audio stream of a file.
struct Audio {
  explicit Audio(const std::string& path, DecoderSelection* selection = nullptr) {
    Ref<IMediaDecoder> decoder;
    if (CreateDecoder(path, selection, &decoder) != S_OK) return;
    IMediaStream* out = nullptr;
    const HRESULT result = decoder->GetAudioStream(&out);
    EXPECT_EQ(out != nullptr, result == S_OK);
    if (out == nullptr) return;
    stream.reset(out);
    void* face = nullptr;
    EXPECT_EQ(stream->QueryInterface(IID_IDecodedAudio, &face), S_OK);
    control.reset(static_cast<IDecodedAudio*>(face));
  }

  explicit operator bool() const { return stream != nullptr; }

  /// The current frame, or null.
  const MEDIA_FRAME* Frame() const {
    CZelSample* sample = stream->GetSampleEx();
    return sample != nullptr ? sample->GetMediaFrame() : nullptr;
  }

  /// The bytes of the current sample and all that follow.
  std::string Rest() const {
    std::string pcm;
    for (const MEDIA_FRAME* frame = Frame(); frame != nullptr; stream->Forward(), frame = Frame()) {
      pcm.append(reinterpret_cast<const char*>(frame->audio.pData),
                 static_cast<std::size_t>(frame->audio.nDataSize));
    }
    return pcm;
  }
  std::string All() const {
    stream->Forward();
    return Rest();
  }

  /// Empty while all is well.
  std::string Failure() const {
    wchar_t* text = nullptr;
    const HRESULT status = control->GetStatus(&text);
    EXPECT_EQ(text != nullptr, status != S_OK);
    const std::string failure = text != nullptr ? media::ToUtf8(text) : "";
    SysFreeString(text);
    return failure;
  }

  Ref<IMediaStream> stream;
  Ref<IDecodedAudio> control;
};

}  // namespace zel::test
