// Sound of files of every kind, and their descriptions.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "kernaldec/StreamExtras.h"
#include "tests/compositor/ScriptedStream.h"
#include "tests/support/Media.h"

namespace zel::test {
namespace {

// Kinds of files, how ffmpeg makes them of a two-channel WAV file, and whether that loses nothing.
// (AAC without random noise in place of bands, which is another one after a seek.)
constexpr std::tuple<const char*, const char*, bool> kKinds[] = {
    {"s16.wav", "-c:a pcm_s16le", true},
    {"f32.wav", "-c:a pcm_f32le", true},
    {"s16.aiff", "-c:a pcm_s16be", true},
    {"flac.flac", "-c:a flac", true},
    {"alac.m4a", "-c:a alac", true},
    {"flac.ogg", "-c:a flac", true},
    {"flac.mkv", "-c:a flac", true},
    {"pcm.mkv", "-c:a pcm_s16le", true},
    {"pcm.avi", "-c:a pcm_s16le", true},
    {"aac.m4a", "-c:a aac -aac_pns 0", false},
    {"aac.mkv", "-c:a aac -aac_pns 0", false},
    {"aac.ts", "-c:a aac -aac_pns 0", false},
    {"aac.aac", "-c:a aac -aac_pns 0 -f adts", false},
    {"mp3.mp3", "-c:a libmp3lame", false},
    {"plain.mp3", "-c:a libmp3lame -write_xing 0 -id3v2_version 0", false},
    {"vbr.mp3", "-c:a libmp3lame -q:a 4", false},
    {"vorbis.ogg", "-c:a libvorbis", false},
    {"opus.opus", "-c:a libopus", false},
    {"opus.webm", "-c:a libopus", false},
    {"ac3.ac3", "-c:a ac3", false},
    {"ac3.ts", "-c:a ac3 -output_ts_offset 5", false},
};

/// The folder with all of them, and with what an independent program decodes them to.
struct MadeFiles : Folder {
  MadeFiles() {
    // Noise, so that no two places look the same.
    Ffmpeg(*this,
           "-f lavfi -i anoisesrc=r=44100:a=0.4:seed=1:d=4 -f lavfi -i "
           "anoisesrc=r=44100:a=0.4:seed=2:d=4 -filter_complex '[0][1]amerge' source.wav");
    std::string encode = "-i source.wav";
    std::string inputs = " && ffmpeg -nostdin -v error";
    std::string decode;
    for (int i = 0; const auto& [file, arguments, lossless] : kKinds) {
      encode += std::string(" ") + arguments + " " + file;
      inputs += std::string(" -i ") + file;
      decode += " -map " + std::to_string(i++) + ":a -f s16le " + file + ".pcm";
    }
    Ffmpeg(*this, encode + inputs + decode);
  }
};

const Folder& Files() {
  static const MadeFiles folder;
  return folder;
}

std::string Path(const std::string& name) {
  return Files() / name;
}

/// Energy of the difference as a part of the energy of `b`.
double Difference(const std::string& a, const std::string& b) {
  const auto* x = reinterpret_cast<const std::int16_t*>(a.data());
  const auto* y = reinterpret_cast<const std::int16_t*>(b.data());
  double difference = 0;
  double energy = 1;
  for (std::size_t i = 0; i < a.size() / 2; ++i) {
    difference += std::pow(x[i] - y[i], 2);
    energy += std::pow(y[i], 2);
  }
  return difference / energy;
}

/// Reads a new stream to its end, frame by frame.
void ExpectAll(const Audio& audio, const std::string& all) {
  EXPECT_EQ(audio.Frame(), nullptr) << "a new stream is before its first sample";
  std::string pcm;
  std::int64_t duration = 0;
  while (audio.stream->Forward() == 0) {
    const MEDIA_FRAME& frame = *audio.Frame();
    // The count of samples, unbroken, also where the container's stamps are coarser.
    const auto samples = static_cast<double>(pcm.size() / 4);
    ASSERT_EQ(frame.llPTS, std::llround(samples * kTicksPerSecond / frame.audio.nSampleRate));
    duration += frame.nDuration;
    pcm.append(reinterpret_cast<const char*>(frame.audio.pData),
               static_cast<std::size_t>(frame.audio.nDataSize));
  }
  EXPECT_EQ(audio.Frame(), nullptr);
  EXPECT_EQ(audio.stream->Forward(), -1);
  EXPECT_TRUE(pcm == all);
  EXPECT_NEAR(static_cast<double>(duration) / kTicksPerSecond, 4, 0.06);
}

void ExpectSeek(const Audio& audio, double place, const std::string& all, bool lossless) {
  SCOPED_TRACE(place);
  const double reached = audio.stream->Seek(place, 1);
  // What was sought is read at once or after one step, whatever the consumer's manner.
  if (place > 2) {
    EXPECT_EQ(audio.stream->Forward(), 0);
  }
  const MEDIA_FRAME* frame = audio.Frame();
  ASSERT_NE(frame, nullptr);
  const int rate = frame->audio.nSampleRate;
  const auto sample = std::llround(place * rate);
  const double time = static_cast<double>(sample) / rate;
  EXPECT_NEAR(reached, time, 1e-9);
  EXPECT_EQ(frame->llPTS, std::llround(time * kTicksPerSecond));
  const std::string got = audio.Rest(6);
  const std::string expected = all.substr(static_cast<std::size_t>(sample) * 4, got.size());
  ASSERT_EQ(got.size(), expected.size());
  // White noise that is off by one sample differs by about twice its own energy.
  EXPECT_LE(Difference(got, expected), lossless ? 0 : 0.1);
}

TEST(Decoder, YieldsAndFindsWhatAnIndependentDecoderYields) {
  for (const auto& [file, arguments, lossless] : kKinds) {
    SCOPED_TRACE(file);
    const std::string all = ReadFile(Path(file + std::string(".pcm")));
    // The grid of frames is learnt on the way: a new stream, and one that was read to its end.
    const Audio fresh(Path(file));
    const Audio read(Path(file));
    ExpectAll(read, all);
    for (const Audio* audio : {&fresh, &read}) {
      for (const double place : {1.0, 0.0, 3.7, 0.00001, 2.123456, 2.1, 2.2, 0.5, 3.99, 1.0 / 3}) {
        ExpectSeek(*audio, place, all, lossless);
      }
      for (const double nowhere : {100.0, std::nan("")}) {
        EXPECT_EQ(audio->stream->Seek(nowhere, 1), -1);
        EXPECT_EQ(audio->Frame(), nullptr);
        EXPECT_EQ(audio->stream->Forward(), -1);
      }
      EXPECT_EQ(audio->Failure(), L"");
      EXPECT_EQ(audio->stream->Seek(-1, 1), 0);
      EXPECT_TRUE(!lossless || audio->Rest() == all);
    }
  }
}

/// Reads a file of these bytes.
/// @return its sound, and whether all is well after that and a seek, which forgives nothing
std::pair<std::string, bool> Read(const std::string& bytes) {
  WriteFile(Path("bytes"), bytes);
  const Audio audio(Path("bytes"));
  std::string pcm = audio.All();
  audio.stream->Seek(0.5, 1);
  return {std::move(pcm), audio.Failure().empty()};
}

TEST(Decoder, TellsATruncatedFileFromACompleteOne) {
  Ffmpeg(Files(),
         "-i source.wav -c:a aac -movflags faststart fast.m4a -c:a aac -movflags "
         "empty_moov+frag_keyframe -frag_duration 500000 fragments.mp4 -f w64 wave.w64");
  // Only seen where the container knows its length, or a cut frame can be told from the end.
  for (const char* name : {"s16.wav", "f32.wav", "s16.aiff", "flac.flac", "flac.ogg", "pcm.mkv",
                           "pcm.avi", "aac.ts", "aac.aac", "mp3.mp3", "vbr.mp3", "opus.opus",
                           "opus.webm", "fast.m4a", "fragments.mp4", "wave.w64"}) {
    SCOPED_TRACE(name);
    const std::string bytes = ReadFile(Path(name));
    EXPECT_TRUE(Read(bytes).second);
    const auto [pcm, isWell] = Read(bytes.substr(0, bytes.size() * 6 / 10 + 1));
    EXPECT_GT(pcm.size(), 1.5 * 44100 * 4);
    EXPECT_FALSE(isWell);
  }
}

TEST(Decoder, ReportsLossesInTheMiddleButNeitherTagsNorTheSizesOfPipes) {
  for (const char* name : {"flac.flac", "aac.aac"}) {
    std::string bytes = ReadFile(Path(name));
    EXPECT_FALSE(Read(bytes.replace(bytes.size() / 2, 6000, 6000, 'x')).second) << name;
  }
  const std::string wave = ReadFile(Path("s16.wav"));
  const std::size_t size = wave.find("data") + 4;
  const std::pair<const char*, std::string> harmless[] = {
      {"plain.mp3", "junk" + ReadFile(Path("plain.mp3")) + "TAG" + std::string(125, 'x')},
      {"s16.wav", std::string(wave).replace(size, 4, 4, '\0')},
      {"s16.wav", std::string(wave).replace(size, 4, 4, '\xFF')},
      {"s16.wav", std::string(wave).replace(size, 4, "\x00\xF0\xFF\x7F", 4)}};
  for (const auto& [name, bytes] : harmless) {
    EXPECT_TRUE(Read(bytes) == std::pair(ReadFile(Path(name + std::string(".pcm"))), true)) << name;
  }
}

TEST(Decoder, OutlivesAFileThatIsReplacedWhileItIsRead) {
  WriteFile(Path("replaced"), ReadFile(Path("ac3.ac3")));
  const Audio audio(Path("replaced"));
  EXPECT_EQ(audio.stream->Seek(2, 1), 2);
  std::string unknown = ReadFile(Path("s16.wav"));
  unknown.replace(20, 2, "\x34\x12");  // A format that no decoder reads.
  WriteFile(Path("replaced"), unknown);
  for (const double place : {0.0, 1.0}) EXPECT_EQ(audio.stream->Seek(place, 1), -1);
  EXPECT_EQ(audio.Frame(), nullptr);
  EXPECT_NE(audio.Failure(), L"");
}

TEST(Decoder, RemixesAndMovesTheOriginBetweenReads) {
  constexpr double kSecond = kTicksPerSecond;
  errno = EIO;  // It says nothing about calls that succeed.
  const Audio audio(Path("ac3.ts"));
  const auto info = [&] { return Obtain<IStreamInfo>(audio.stream, &IMediaStream::GetStreamInfo); };
  const std::int64_t start = info()->GetStartPTS();
  EXPECT_NEAR(start / kSecond, 5, 1.5) << "the container's stamps start late";
  audio.stream->Forward();
  EXPECT_EQ(audio.Frame()->llPTS, 0);
  EXPECT_EQ(audio.control->SetTimeOrigin(0), S_OK);
  EXPECT_EQ(audio.Frame()->llPTS, start);
  EXPECT_NEAR(audio.stream->Seek(start / kSecond + 1, 1), start / kSecond + 1, 1e-4);
  EXPECT_NEAR(audio.Frame()->llPTS / kSecond, start / kSecond + 1, 1e-4);
  for (const int channels : {9, -1, 1, 6, 8, 0}) {
    const bool isTaken = channels >= 0 && channels <= 8;
    EXPECT_EQ(audio.control->SetOutputChannels(channels), isTaken ? S_OK : E_INVALIDARG);
    const int expected = isTaken && channels != 0 ? channels : 2;
    EXPECT_EQ(audio.Frame()->audio.nChannels, expected);
    EXPECT_GT(audio.Frame()->audio.nDataSize, 0);
    EXPECT_EQ(info()->GetAudioInfo()->channels, expected);
    audio.stream->Forward();
  }
  EXPECT_EQ(audio.Failure(), L"");
}

/// Waits for what other threads do.
bool ComesTrue(const std::function<bool()>& condition) {
  for (int i = 0; i < 5000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

TEST(Decoder, IsTheCompositorsTrackAndLeavesNothingBehind) {
  const auto open = [] {
    using std::filesystem::directory_iterator;
    return std::pair{std::distance(directory_iterator("/proc/self/task"), {}),
                     std::distance(directory_iterator("/proc/self/fd"), {})};
  };
  const Audio input(Path("s16.wav"));
  const std::string all = ReadFile(Path("s16.wav.pcm"));
  std::thread([] {}).join();  // ThreadSanitizer has a thread of its own from the first one on.
  const auto before = open();
  {
    Ref<IClassFactory> factory;
    DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
    Ref<IAudioCompositor> compositor;
    factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
    const auto output = Obtain<IMediaStream>(compositor, &IAudioCompositor::GetOutPutAudioStream);
    compositor->SetInputAudioStream(input.stream.get());
    compositor->SetDelayTime(1);
    ASSERT_EQ(compositor->AddByFileName(media::ToWide(Path("flac.mkv")).data()), S_OK);
    EXPECT_TRUE(ComesTrue([&] {
      output->Seek(2, 1);
      const MEDIA_FRAME_AUDIO& frame = output->GetSampleEx()->GetMediaFrame()->audio;
      const auto size = static_cast<std::size_t>(frame.nDataSize);
      return std::memcmp(frame.pData, &all[44100 * 4], size) == 0;
    }));
  }
  // A thread that was waited for may be listed a moment longer.
  EXPECT_TRUE(ComesTrue([&] { return open() == before; }));
}

/// What the manager says of a file with one program.
Ref<IProgramInfo> Program(const std::string& path) {
  const auto programs = Obtain<IProgramInfos>(Describe(path), &IMediaInfo::GetIPrograms);
  return Obtain<IProgramInfo>(programs, &IProgramInfos::GetItem, 0);
}

Ref<IStreamInfo> Stream(const Ref<IProgramInfo>& program,
                        HRESULT (IProgramInfo::*list)(IStreamInfos**)) {
  return Obtain<IStreamInfo>(Obtain<IStreamInfos>(program, list), &IStreamInfos::GetItem, 0);
}

TEST(Decoder, DescribesStreams) {
  Ffmpeg(Files(),
         "-f lavfi -i testsrc=s=64x48:r=25:d=1 -i source.wav -f lavfi -i "
         "sine=r=48000:d=1 -map 0 -map 1 -map 2 -t 1 -c:v ffv1 -pix_fmt yuv422p10le -c:a pcm_s16le "
         "-c:a:0 flac one.mkv -map 0 -t 1 -c:v libx264 -pix_fmt yuv420p -profile:v main -level 3.1 "
         "-bf 3 -x264-params b-adapt=0:b-pyramid=normal main.mp4 -map 0 -map 1 -t 1 -c:v png "
         "-disposition:v attached_pic covered.mp3");
  EXPECT_EQ(Describe(Path("one.mkv"))->GetSeekCapacity(), 1);
  const Ref<IProgramInfo> mkv = Program(Path("one.mkv"));
  EXPECT_EQ(mkv->GetBitrate(), 768'000) << "the sum of what is known";
  EXPECT_EQ(mkv->GetTimeStampReferenceStreamID(), 0x10000U);
  const Ref<IStreamInfo> sound = Stream(mkv, kAudio);
  EXPECT_GE(sound->GetExtraDataLength(), 34U);
  EXPECT_EQ(sound->GetAudioInfo()->bitsPerSample, 16);
  EXPECT_FALSE(kernaldec::Unpack(sound->GetVideoInfo())) << "sound has no picture";
  EXPECT_FALSE(kernaldec::Unpack(nullptr));

  const auto delivered = kernaldec::Unpack(Stream(mkv, kVideo)->GetVideoInfo());
  EXPECT_TRUE(delivered && delivered->bitDepth == 8 && delivered->height == 48);
  // As the encoder was told; B-frames that refer to B-frames come two pictures late.
  const Ref<IStreamInfo> main = Stream(Program(Path("main.mp4")), kVideo);
  EXPECT_EQ((std::vector{main->GetProfileValue(), main->GetLevelValue(), main->GetMaxBFrames()}),
            (std::vector{77, 31, 2}));
  // A cover is not a video: the program does not go by it.
  const Ref<IProgramInfo> covered = Program(Path("covered.mp3"));
  EXPECT_EQ(covered->GetTimeStampReferenceStreamID(), Stream(covered, kAudio)->GetID());
}

TEST(Decoder, OpensStreamsByTheirIds) {
  Ffmpeg(Files(),
         "-f lavfi -i testsrc=s=64x48:r=25:d=1 -i source.wav -f lavfi -i sine=r=48000:d=1 -map 0 "
         "-map 1 -map 2 -map 2 -t 1 -c:v mpeg2video -c:a mp2 -program program_num=3:st=0:st=1:st=2 "
         "-program program_num=7:st=3 two.ts");
  // The streams of the second program are found by its ids, and by nothing else.
  DecoderSelection selection{sizeof(DecoderSelection), 0, 7, 0x70003, {}};
  const Audio chosen(Path("two.ts"), &selection);
  chosen.stream->Forward();
  EXPECT_EQ(chosen.Frame()->audio.nSampleRate, 48000);
  EXPECT_EQ(chosen.stream->ChangeStream(1), E_INVALIDARG) << "not in this program";
  for (const auto& [program, stream] :
       {std::pair{7U, 0x70001U}, {7U, 0x30003U}, {3U, 0x70003U}, {1U, 0x10001U}}) {
    selection.programId = program;
    selection.streamId = stream;
    EXPECT_FALSE(OpenFile(Path("two.ts"), &selection));
  }
  selection.size = 0;
  const Audio changed(Path("two.ts"), &selection);
  changed.stream->Seek(0, 1);  // The change leaves nothing of it.
  for (const int index : {2, -1, 1}) {
    EXPECT_EQ(changed.stream->ChangeStream(index), index == 1 ? S_OK : E_INVALIDARG);
  }
  changed.stream->Forward();
  EXPECT_EQ(changed.Frame()->audio.nSampleRate, 48000);
  EXPECT_EQ(changed.Frame()->llPTS, 0);
}

TEST(Decoder, OpensNothingThatIsNotThere) {
  // Text has neither sound nor picture, sound no picture.
  WriteFile(Path("text.srt"), "1\n00:00:01,000 --> 00:00:02,000\nHello\n");
  for (const char* name : {"text.srt", "s16.wav"}) {
    const Ref<IMediaDecoder> decoder = OpenFile(Path(name));
    EXPECT_FALSE(Obtain<IMediaStream>(decoder, &IMediaDecoder::GetVideoStream));
    const auto sound = Obtain<IMediaStream>(decoder, &IMediaDecoder::GetAudioStream);
    EXPECT_EQ(static_cast<bool>(sound), name[0] == 's');
    const auto again = Obtain<IMediaStream>(decoder, &IMediaDecoder::GetAudioStream);
    EXPECT_EQ(sound.get(), again.get());
  }
  EXPECT_EQ(Program(Path("text.srt"))->GetTimeStampReferenceStreamID(), 0U);
  Ref<IMediaDecoder> decoder;
  EXPECT_EQ(Manager()->CreateDecoder(L"", 0, nullptr, 11, decoder.Receive()), E_INVALIDARG);
  EXPECT_EQ(Manager()->CreateDecoder(nullptr, 0, nullptr, 11, nullptr), E_POINTER);
  Ref<IMediaInfo> info;
  EXPECT_EQ(Manager()->OpenMediaInfo(L"", 11, info.Receive()), E_INVALIDARG);
  EXPECT_EQ(Manager()->OpenMediaInfo(nullptr, 11, nullptr), E_POINTER);
}

}  // namespace
}  // namespace zel::test
