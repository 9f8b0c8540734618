#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/platform/Media.h"

namespace zel::test {
namespace {

// One kind of file: how ffmpeg makes it of a two-channel WAV file, and what may be asked of it.
struct Kind {
  const char* file;
  const char* arguments;
  bool lossless;
};

constexpr Kind kKinds[] = {
    {"s16.wav", "-c:a pcm_s16le", true},
    {"s24.wav", "-c:a pcm_s24le", true},
    {"f32.wav", "-c:a pcm_f32le", true},
    {"s16.aiff", "-c:a pcm_s16be", true},
    {"flac.flac", "-c:a flac", true},
    {"alac.m4a", "-c:a alac", true},
    {"flac.ogg", "-c:a flac", true},
    {"flac.mkv", "-c:a flac", true},
    {"pcm.mkv", "-c:a pcm_s16le", true},
    {"pcm.mov", "-c:a pcm_s16le", true},
    {"pcm.avi", "-c:a pcm_s16le", true},
    {"aac.m4a", "-c:a aac", false},
    {"aac.mkv", "-c:a aac", false},
    {"aac.ts", "-c:a aac", false},
    {"aac.aac", "-c:a aac -f adts", false},
    {"mp3.mp3", "-c:a libmp3lame", false},
    {"plain.mp3", "-c:a libmp3lame -write_xing 0 -id3v2_version 0", false},
    {"vbr.mp3", "-c:a libmp3lame -q:a 4", false},
    {"mp3.mkv", "-c:a libmp3lame", false},
    {"vorbis.ogg", "-c:a libvorbis", false},
    {"vorbis.webm", "-c:a libvorbis", false},
    {"opus.opus", "-c:a libopus", false},
    {"opus.webm", "-c:a libopus", false},
    {"ac3.ac3", "-c:a ac3", false},
    {"ac3.ts", "-c:a ac3 -output_ts_offset 5", false},
};

class Decoder : public testing::Test {
 protected:
  static constexpr int kSeconds = 4;

  static void SetUpTestSuite() {
    folder = new Folder;
    // Noise, so that no two places look the same.
    std::string command =
        "-f lavfi -i anoisesrc=r=44100:a=0.4:seed=1:d=4 -f lavfi -i "
        "anoisesrc=r=44100:a=0.4:seed=2:d=4 "
        "-filter_complex '[0][1]amerge' -c:a pcm_s16le source.wav";
    Ffmpeg(*folder, command);
    command = "-i source.wav";
    for (const Kind& kind : kKinds) {
      command += std::string(" ") + kind.arguments + " " + kind.file;
    }
    Ffmpeg(*folder, command);
    // What an independent program decodes.
    command.clear();
    for (const Kind& kind : kKinds) command += std::string(" -i ") + kind.file;
    for (std::size_t i = 0; i < std::size(kKinds); ++i) {
      command += " -map " + std::to_string(i) + ":a -f s16le " + kKinds[i].file + ".pcm";
    }
    Ffmpeg(*folder, command);
  }
  static void TearDownTestSuite() { delete folder; }

  static std::string Path(const std::string& name) { return *folder / name; }

  static Folder* folder;
};

Folder* Decoder::folder = nullptr;

TEST_F(Decoder, YieldsWhatAnIndependentDecoderYields) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.file);
    const Audio audio(Path(kind.file));
    ASSERT_TRUE(audio);
    EXPECT_EQ(audio.Frame(), nullptr) << "a new stream is before its first sample";
    std::string pcm;
    std::int64_t samples = 0;
    std::int64_t duration = 0;
    while (audio.stream->Forward() == 0) {
      const MEDIA_FRAME* frame = audio.Frame();
      ASSERT_NE(frame, nullptr);
      const MEDIA_FRAME_AUDIO& pcmFrame = frame->audio;
      ASSERT_EQ(frame->nStreamType, AV_STREAM_AUDIO);
      ASSERT_EQ(pcmFrame.nBitsPerSample, 16);
      // The count of samples, unbroken, also where the container's stamps are coarser.
      ASSERT_EQ(frame->llPTS, std::llround(samples * 1e7L / pcmFrame.nSampleRate));
      samples += pcmFrame.nDataSize / 2 / pcmFrame.nChannels;
      duration += frame->nDuration;
      pcm.append(reinterpret_cast<const char*>(pcmFrame.pData), pcmFrame.nDataSize);
    }
    EXPECT_EQ(audio.Frame(), nullptr);
    EXPECT_EQ(audio.stream->Forward(), -1);
    EXPECT_TRUE(pcm == ReadFile(Path(kind.file + std::string(".pcm"))));
    EXPECT_EQ(audio.Failure(), "");
    EXPECT_NEAR(duration / 1e7, kSeconds, 0.06);
  }
}

}  // namespace
}  // namespace zel::test
