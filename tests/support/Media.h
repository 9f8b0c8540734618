// Media files made by the ffmpeg command, and what a host obtains from them.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "kernaldec/DecodedAudio.h"
#include "media/Utf8.h"
#include "zel/zel.h"

namespace zel::test {

/// A folder that is removed when the test ends.
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

/// Calls `get(T**)`, which must hand out an object if, and only if, it returns S_OK.
template <class T, class Get>
Ref<T> Obtain(Get&& get, HRESULT expected = S_OK) {
  T* object = reinterpret_cast<T*>(1);
  EXPECT_EQ(get(&object), expected);
  EXPECT_EQ(object != nullptr, expected == S_OK);
  return Ref<T>::Adopt(expected == S_OK ? object : nullptr);
}

inline Ref<IMediaDecoderMgr> Manager() {
  Ref<IMediaDecoderMgr> manager;
  EXPECT_EQ(ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr,
                              manager.ReceiveVoid()),
            S_OK);
  return manager;
}

inline Ref<IMediaDecoder> OpenFile(const std::string& path, DecoderSelection* selection = nullptr,
                                   HRESULT expected = S_OK) {
  return Obtain<IMediaDecoder>(
      [&](IMediaDecoder** out) {
        return Manager()->CreateDecoder(media::ToWide(path).c_str(), 0, selection, 11, out);
      },
      expected);
}

inline Ref<IMediaInfo> Describe(const std::string& path, HRESULT expected = S_OK) {
  const std::wstring name = media::ToWide(path);
  return Obtain<IMediaInfo>(
      [&](auto out) { return Manager()->OpenMediaInfo(name.c_str(), 11, out); }, expected);
}

/// The audio stream of a file.
struct Audio {
  explicit Audio(const std::string& path, DecoderSelection* selection = nullptr) {
    const Ref<IMediaDecoder> decoder = OpenFile(path, selection);
    if (!decoder) return;
    stream = Obtain<IMediaStream>([&](auto out) { return decoder->GetAudioStream(out); });
    EXPECT_EQ(stream->QueryInterface(IID_IDecodedAudio, control.ReceiveVoid()), S_OK);
  }

  /// The current frame, or null.
  const MEDIA_FRAME* Frame() const {
    CZelSample* sample = stream->GetSampleEx();
    return sample != nullptr ? sample->GetMediaFrame() : nullptr;
  }

  /// The bytes of the current frame and all that follow.
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
