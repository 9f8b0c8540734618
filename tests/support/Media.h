// Media files made by the ffmpeg command, and their sound.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include "kernaldec/DecodedAudio.h"
#include "tests/support/Host.h"

namespace zel::test {

/// A folder that is removed when the test ends.
class Folder {
 public:
  Folder() { Require(mkdtemp(path_.data()) != nullptr, "a folder"); }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(const std::string& name) const { return path_ + '/' + name; }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "zel-test-XXXXXX";
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

/// The audio stream of a file.
struct Audio {
  explicit Audio(const std::string& path, DecoderSelection* selection = nullptr)
      : stream(Obtain<IMediaStream>(OpenFile(path, selection), &IMediaDecoder::GetAudioStream)) {
    stream->QueryInterface(IID_IDecodedAudio, control.ReceiveVoid());
  }

  /// The current frame, or null.
  const MEDIA_FRAME* Frame() const {
    CZelSample* sample = stream->GetSampleEx();
    return sample != nullptr ? sample->GetMediaFrame() : nullptr;
  }

  /// The bytes of the current frame and of those that follow.
  std::string Rest(int most = std::numeric_limits<int>::max()) const {
    std::string pcm;
    for (const MEDIA_FRAME* frame = Frame(); frame != nullptr && most > 0;
         frame = Frame(), --most) {
      pcm.append(reinterpret_cast<const char*>(frame->audio.pData),
                 static_cast<std::size_t>(frame->audio.nDataSize));
      stream->Forward();
    }
    return pcm;
  }
  std::string All() const {
    stream->Forward();
    return Rest();
  }

  /// Empty while all is well.
  std::wstring Failure() const { return Text(control, &IDecodedAudio::GetStatus); }

  Ref<IMediaStream> stream;
  Ref<IDecodedAudio> control;
};

}  // namespace zel::test
