#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "kernaldec/StreamExtras.h"
#include "tests/support/Media.h"

namespace zel::test {
namespace {

// One kind of file and how ffmpeg makes it of a two-channel WAV file. (AAC without random noise in
// place of bands, which is another one after a seek.)
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
    {"aac.m4a", "-c:a aac -aac_pns 0", false},
    {"aac.mkv", "-c:a aac -aac_pns 0", false},
    {"aac.ts", "-c:a aac -aac_pns 0", false},
    {"aac.aac", "-c:a aac -aac_pns 0 -f adts", false},
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

std::vector<std::int16_t> Samples(const std::string& bytes) {
  std::vector<std::int16_t> samples(bytes.size() / 2);
  std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
  return samples;
}

/// Energy of the difference as a part of the energy of `b`.
double Difference(const std::int16_t* a, const std::int16_t* b, std::size_t size) {
  double difference = 0;
  double energy = 1;
  for (std::size_t i = 0; i < size; ++i) {
    difference += std::pow(a[i] - b[i], 2);
    energy += std::pow(b[i], 2);
  }
  return difference / energy;
}

TEST_F(Decoder, SeeksToTheExactSample) {
  constexpr double places[] = {1.0, 0.0, 3.7, 0.00001, 2.123456, 2.1, 2.2, 0.5, 3.99, 1.0 / 3};
  for (const Kind& kind : kKinds) {
    const std::vector<std::int16_t> all = Samples(ReadFile(Path(kind.file + std::string(".pcm"))));
    const Audio audio(Path(kind.file));
    ASSERT_TRUE(audio);
    for (const double place : places) {
      SCOPED_TRACE(testing::Message() << kind.file << " at " << place);
      const double reached = audio.stream->Seek(place, 1);
      // What was sought is read at once or after one step, whatever the consumer's manner.
      if (place > 2) {
        EXPECT_EQ(audio.stream->Forward(), 0);
      }
      const MEDIA_FRAME* frame = audio.Frame();
      ASSERT_NE(frame, nullptr);
      const int rate = frame->audio.nSampleRate;
      const auto sample = std::llround(place * rate);
      EXPECT_NEAR(reached, static_cast<double>(sample) / rate, 1e-9);
      EXPECT_EQ(frame->llPTS, std::llround(sample * 1e7L / rate));
      // To within a few frames of the next place or to the end, in turn.
      std::vector<std::int16_t> got;
      for (int i = 0; i < 6 && audio.Frame() != nullptr; ++i, audio.stream->Forward()) {
        const auto* pcm = reinterpret_cast<const std::int16_t*>(audio.Frame()->audio.pData);
        got.insert(got.end(), pcm, pcm + audio.Frame()->audio.nDataSize / 2);
      }
      const std::size_t at = static_cast<std::size_t>(sample) * 2;
      ASSERT_LE(at + got.size(), all.size());
      if (kind.lossless) {
        EXPECT_TRUE(std::equal(got.begin(), got.end(), all.begin() + static_cast<long>(at)));
      } else {
        // White noise that is off by one sample differs by about twice its own energy.
        EXPECT_LT(Difference(got.data(), all.data() + at, got.size()), 0.1);
      }
    }
    SCOPED_TRACE(kind.file);
    EXPECT_EQ(audio.stream->Seek(100, 1), -1);
    EXPECT_EQ(audio.Frame(), nullptr);
    EXPECT_EQ(audio.stream->Forward(), -1);
    EXPECT_EQ(audio.Failure(), "");
    EXPECT_EQ(audio.stream->Seek(-1, 1), 0);
    EXPECT_TRUE(!kind.lossless || Samples(audio.Rest()) == all);
  }
}

TEST_F(Decoder, TellsATruncatedFileFromACompleteOne) {
  Ffmpeg(*folder,
         "-i source.wav -c:a aac -movflags faststart fast.m4a -c:a aac -movflags "
         "empty_moov+frag_keyframe -frag_duration 500000 fragments.mp4 -f w64 wave.w64");
  // Only seen where the container knows its length, or a cut frame can be told from the end.
  for (const char* name :
       {"s16.wav",  "s24.wav",       "f32.wav",    "s16.aiff",    "flac.flac", "flac.ogg",
        "flac.mkv", "pcm.mkv",       "pcm.avi",    "aac.mkv",     "aac.ts",    "aac.aac",
        "mp3.mp3",  "vbr.mp3",       "vorbis.ogg", "vorbis.webm", "opus.opus", "opus.webm",
        "fast.m4a", "fragments.mp4", "wave.w64"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(
        [&] {
          const Audio whole(Path(name));
          whole.All();
          return whole.Failure();
        }(),
        "");
    const std::string bytes = ReadFile(Path(name));
    WriteFile(Path(std::string("cut.") + name), bytes.substr(0, bytes.size() * 6 / 10 + 1));
    const Audio cut(Path(std::string("cut.") + name));
    ASSERT_TRUE(cut);
    EXPECT_GT(cut.All().size(), 1.5 * 44100 * 4);
    EXPECT_NE(cut.Failure(), "");
    cut.stream->Seek(0.5, 1);
    EXPECT_NE(cut.Failure(), "") << "a seek forgives nothing";
  }
}

TEST_F(Decoder, TakesPlaceholdersForNoSize) {
  const std::string wave = ReadFile(Path("s16.wav"));
  const std::size_t at = wave.find("data") + 4;
  const std::string whole = Audio(Path("s16.wav")).All();
  for (const std::uint32_t size : {0U, 0xFFFFFFFFU, 0x7FFFF000U}) {
    std::string bytes = wave;
    std::memcpy(bytes.data() + at, &size, 4);
    WriteFile(Path("piped.wav"), bytes);
    const Audio audio(Path("piped.wav"));
    ASSERT_TRUE(audio);
    EXPECT_TRUE(audio.All() == whole) << size;
    EXPECT_EQ(audio.Failure(), "") << size;
  }
}

TEST_F(Decoder, ReportsLossesInTheMiddleButNotTagsAtTheEdges) {
  for (const char* name : {"flac.flac", "aac.aac"}) {
    std::string bytes = ReadFile(Path(name));
    for (std::size_t i = 0; i < 6000; ++i) bytes[bytes.size() / 2 + i] = static_cast<char>(i * 7);
    WriteFile(Path("damaged"), bytes);
    const Audio damaged(Path("damaged"));
    ASSERT_TRUE(damaged);
    damaged.All();
    EXPECT_NE(damaged.Failure(), "") << name;
  }
  const std::string bytes = ReadFile(Path("plain.mp3"));
  WriteFile(Path("tagged.mp3"), "junk" + bytes + "TAG" + std::string(125, 'x'));
  const Audio tagged(Path("tagged.mp3"));
  ASSERT_TRUE(tagged);
  EXPECT_TRUE(tagged.All() == ReadFile(Path("plain.mp3.pcm")));
  EXPECT_EQ(tagged.Failure(), "");
}

TEST_F(Decoder, RefusesWhatIsNoPlainMediaFile) {
  const std::string wave = ReadFile(Path("s16.wav"));
  WriteFile(Path("empty.wav"), "");
  WriteFile(Path("noise.mp4"), std::string(5000, '\xA5'));
  WriteFile(Path("header.wav"), wave.substr(0, 30));
  WriteFile(Path("list.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\ns16.wav\n#EXT-X-ENDLIST\n");
  WriteFile(Path("list.ffconcat"), "ffconcat version 1.0\nfile s16.wav\n");
  std::string numbers;
  for (int i = 0; i < 20'000; ++i) numbers += std::to_string(i) + "\n";
  WriteFile(Path("numbers.txt"), numbers);
  ASSERT_EQ(mkfifo(Path("fifo.wav").c_str(), 0600), 0);
  Ref<IMediaDecoder> decoder;
  IMediaInfo* info = nullptr;
  for (const std::string& path :
       {Path("empty.wav"), Path("noise.mp4"), Path("header.wav"), Path("list.m3u8"),
        Path("list.ffconcat"), Path("numbers.txt"), Path("fifo.wav"), Path(""), Path("missing.wav"),
        std::string(), "file:" + Path("s16.wav"), "concat:" + Path("s16.wav"),
        std::string("http:x"), std::string("/dev/zero"), std::string("pipe:0")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(CreateDecoder(path, nullptr, &decoder), E_INVALIDARG);
    info = reinterpret_cast<IMediaInfo*>(1);
    EXPECT_EQ(Manager()->OpenMediaInfo(media::ToWide(path).c_str(), 11, &info), E_INVALIDARG);
    EXPECT_EQ(info, nullptr);
  }
  EXPECT_EQ(Manager()->CreateDecoder(nullptr, 0, nullptr, 11, nullptr), E_POINTER);
  EXPECT_EQ(Manager()->OpenMediaInfo(nullptr, 11, &info), E_POINTER);
}

TEST_F(Decoder, OpensFilesWhateverTheirNames) {
  const std::string wave = ReadFile(Path("s16.wav"));
  for (const char* name :
       {"concat:a|b.wav", "http:x", "100%d.wav", "%03d.png", "-i", "a b'\"$.wav", "\xE9.wav",
        "\xF0\x9D\x84\x9E \xD0\x9C\xE9\x9F\xB3", "a\nb.mp4", "file:x.mp3"}) {
    WriteFile(Path(name), wave);
    const Audio audio(Path(name));
    ASSERT_TRUE(audio) << name;
    EXPECT_EQ(audio.All().size(), wave.size() - (wave.find("data") + 8)) << name;
  }
}

TEST_F(Decoder, RemixesAndMovesTheOriginBetweenReads) {
  const Audio audio(Path("ac3.ts"));
  ASSERT_TRUE(audio);
  IStreamInfo* out = nullptr;
  ASSERT_EQ(audio.stream->GetStreamInfo(&out), S_OK);
  const Ref<IStreamInfo> info(out);
  const std::int64_t start = info->GetStartPTS();
  EXPECT_NEAR(start / 1e7, 5, 1.5) << "the container's stamps start late";
  audio.stream->Forward();
  EXPECT_EQ(audio.Frame()->llPTS, 0);
  EXPECT_EQ(audio.control->SetTimeOrigin(0), S_OK);
  EXPECT_EQ(audio.Frame()->llPTS, start);
  EXPECT_NEAR(audio.stream->Seek(start / 1e7 + 1, 1), start / 1e7 + 1, 1e-4);
  EXPECT_NEAR(audio.Frame()->llPTS / 1e7, start / 1e7 + 1, 1e-4);

  EXPECT_EQ(audio.control->SetOutputChannels(9), E_INVALIDARG);
  EXPECT_EQ(audio.control->SetOutputChannels(-1), E_INVALIDARG);
  for (const int channels : {1, 6, 8, 0}) {
    EXPECT_EQ(audio.control->SetOutputChannels(channels), S_OK);
    const int expected = channels != 0 ? channels : 2;
    const int samples = audio.Frame()->audio.nDataSize / 2 / audio.Frame()->audio.nChannels;
    EXPECT_EQ(audio.Frame()->audio.nChannels, expected);
    ASSERT_EQ(audio.stream->GetStreamInfo(&out), S_OK);
    EXPECT_EQ(Ref<IStreamInfo>(out)->GetAudioInfo()->channels, expected);
    EXPECT_GT(samples, 0);
    audio.stream->Forward();
  }
  EXPECT_EQ(audio.Failure(), "");
}

Ref<IMediaInfo> Describe(const std::string& path) {
  IMediaInfo* info = nullptr;
  EXPECT_EQ(Manager()->OpenMediaInfo(media::ToWide(path).c_str(), 11, &info), S_OK) << path;
  return Ref<IMediaInfo>(info);
}

template <class I, class List>
Ref<I> Item(List* list, unsigned long index) {
  I* item = nullptr;
  EXPECT_EQ(list->GetItem(index, &item), S_OK);
  return Ref<I>(item);
}

TEST_F(Decoder, DescribesProgramsAndStreamsAndOpensThemByTheirIds) {
  Ffmpeg(*folder,
         "-f lavfi -i testsrc=s=64x48:r=25:d=1 -i source.wav -f lavfi -i sine=r=48000:d=1 -map 0 "
         "-map 1 "
         "-map 2 -t 1 -metadata:s:a:0 language=deu -metadata:s:a:1 title=\xC3\xBC -c:v mpeg2video "
         "-c:a "
         "mp2 -program program_num=3:st=0:st=1 -program program_num=7:st=2 two.ts "
         "-map 0 -map 1 -map 2 -t 1 -c:v ffv1 -pix_fmt yuv422p10le -c:a flac -metadata:s:a:0 "
         "language=deu "
         "-metadata:s:a:1 title=\xC3\xBC one.mkv "
         "-map 0 -t 1 -c:v libx264 -pix_fmt yuv420p -profile:v main -level 3.1 -bf 3 -x264-params "
         "b-adapt=0:b-pyramid=normal main.mp4");
  const Ref<IMediaInfo> mkv = Describe(Path("one.mkv"));
  EXPECT_NEAR(mkv->GetMediaLength(), 1, 0.05);
  EXPECT_EQ(mkv->GetSeekCapacity(), 1);
  IProgramInfos* programs = nullptr;
  ASSERT_EQ(mkv->GetIPrograms(&programs), S_OK);
  Ref<IProgramInfos> owner(programs);
  ASSERT_EQ(programs->GetCount(), 1U);
  IStreamInfos* streams = nullptr;
  ASSERT_EQ(Item<IProgramInfo>(programs, 0)->GetAudioStreamInfos(&streams), S_OK);
  const Ref<IStreamInfos> audio(streams);
  ASSERT_EQ(audio->GetCount(), 2U);
  const Ref<IStreamInfo> first = Item<IStreamInfo>(streams, 0);
  const Ref<IStreamInfo> second = Item<IStreamInfo>(streams, 1);
  EXPECT_EQ(first->GetID(), 0x10001U);
  EXPECT_EQ(second->GetID(), 0x10002U);
  EXPECT_EQ(first->GetAudioInfo()->sampleRate, 44100);
  EXPECT_EQ(first->GetAudioInfo()->bitsPerSample, 16);
  EXPECT_EQ(second->GetAudioInfo()->channels, 1);
  EXPECT_EQ(first->GetFourCC(), 0x43414C46U) << "FLAC";
  EXPECT_GE(first->GetExtraDataLength(), 34U);
  wchar_t* text = nullptr;
  EXPECT_EQ(first->GetLanguageDesc(&text), S_OK);
  EXPECT_STREQ(text, L"deu");
  SysFreeString(text);
  EXPECT_EQ(second->GetName(&text), S_OK);
  EXPECT_STREQ(text, L"\u00FC");
  SysFreeString(text);

  // As in the file, and as delivered.
  ASSERT_EQ(Item<IProgramInfo>(programs, 0)->GetVideoStreamInfos(&streams), S_OK);
  const Ref<IStreamInfos> video(streams);
  const Ref<IStreamInfo> picture = Item<IStreamInfo>(streams, 0);
  const auto source = kernaldec::Unpack(picture->GetVideoSrcInfo());
  const auto delivered = kernaldec::Unpack(picture->GetVideoInfo());
  ASSERT_TRUE(source && delivered);
  EXPECT_EQ(source->width * 1000 + source->height, 64048);
  EXPECT_EQ(source->frameRateNumerator, 25 * source->frameRateDenominator);
  EXPECT_EQ(source->bitDepth, 10);
  EXPECT_EQ(delivered->bitDepth, 8);
  EXPECT_EQ(delivered->height, 48);
  EXPECT_FALSE(kernaldec::Unpack(first->GetVideoInfo())) << "sound has no picture";
  EXPECT_FALSE(kernaldec::Unpack(nullptr));

  // As the encoder was told; B-frames that refer to B-frames come two pictures late.
  const Ref<IMediaInfo> mp4 = Describe(Path("main.mp4"));
  ASSERT_EQ(mp4->GetIPrograms(&programs), S_OK);
  owner.reset(programs);
  ASSERT_EQ(Item<IProgramInfo>(programs, 0)->GetVideoStreamInfos(&streams), S_OK);
  const Ref<IStreamInfos> coded(streams);
  const Ref<IStreamInfo> main = Item<IStreamInfo>(streams, 0);
  EXPECT_EQ((std::vector{main->GetProfileValue(), main->GetLevelValue(), main->GetMaxBFrames()}),
            (std::vector{77, 31, 2}));
  EXPECT_EQ(picture->GetMaxBFrames(), 0);

  // The streams of the second program are found by its ids, and by nothing else.
  DecoderSelection selection{sizeof(DecoderSelection), 0, 7, 0x70002, {}};
  Ref<IMediaDecoder> decoder;
  {
    const Audio chosen(Path("two.ts"), &selection);
    ASSERT_TRUE(chosen);
    chosen.stream->Forward();
    EXPECT_EQ(chosen.Frame()->audio.nSampleRate, 48000);
    EXPECT_EQ(chosen.stream->ChangeStream(1), E_INVALIDARG) << "not in this program";
  }
  for (const auto& [program, stream] : {std::pair{7U, 0x70001U}, {3U, 0x70002U}, {1U, 0x10001U}}) {
    selection.programId = program;
    selection.streamId = stream;
    EXPECT_EQ(CreateDecoder(Path("two.ts"), &selection, &decoder), E_INVALIDARG);
  }
  selection.size = 0;
  const Audio changed(Path("one.mkv"), &selection);
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed.stream->ChangeStream(2), E_INVALIDARG);
  EXPECT_EQ(changed.stream->ChangeStream(-1), E_INVALIDARG);
  ASSERT_EQ(changed.stream->ChangeStream(1), S_OK);
  changed.stream->Forward();
  EXPECT_EQ(changed.Frame()->audio.nChannels, 1);
  EXPECT_EQ(changed.Frame()->llPTS, 0);
}

TEST_F(Decoder, TakesNoCoverForAVideo) {
  Ffmpeg(*folder,
         "-i source.wav -f lavfi -i color=s=32x32:r=1:d=1 -map 1 -map 0 -t 1 -c:v png "
         "-disposition:v attached_pic covered.mp3 -map 0 -map 1 -t 1 -c:v mpeg4 filmed.mkv");
  for (const auto& [name, cover, reference] :
       {std::tuple{"covered.mp3", 1, 0x10000U}, {"filmed.mkv", 0, 0x10001U}}) {
    SCOPED_TRACE(name);
    const Ref<IMediaInfo> info = Describe(Path(name));
    IProgramInfos* programs = nullptr;
    ASSERT_EQ(info->GetIPrograms(&programs), S_OK);
    const Ref<IProgramInfos> owner(programs);
    const Ref<IProgramInfo> program = Item<IProgramInfo>(programs, 0);
    EXPECT_EQ(program->GetTimeStampReferenceStreamID(), reference);
    IStreamInfos* videos = nullptr;
    ASSERT_EQ(program->GetVideoStreamInfos(&videos), S_OK);
    const Ref<IStreamInfos> videoOwner(videos);
    const auto format = kernaldec::Unpack(Item<IStreamInfo>(videos, 0)->GetVideoSrcInfo());
    ASSERT_TRUE(format);
    EXPECT_EQ(format->isCover, cover);
    EXPECT_EQ(format->frameRateNumerator > 0, cover == 0);
  }
}

TEST_F(Decoder, TellsMatroskasStreamsApartByTheirTags) {
  WriteFile(Path("text.srt"), "1\n00:00:01,000 --> 00:00:02,000\nHello\n");
  struct Row {
    const char* tags;             // Of the sound, in a file whose muxer writes further ones itself.
    std::string muxers;           // What those that it calls DURATION are called here.
    std::vector<double> lengths;  // Picture, sound, text.
    std::uint32_t bitRate;
  };
  // Statistics are a length, what FFmpeg's muxer says last is an end, and none goes by the
  // container's.
  const Row rows[] = {
      {"", "DURATION", {5, 3, 1}, 0},
      {"", "SOMEWHAT", {5, 3, 4}, 0},
      {"BPS=9 DURATIOM=00:00:02.500000000 _STATISTICS_TAGS=x", "SOMEWHAT", {5, 2.5, 4}, 9},
      {"BPS-eng=9 DURATIOM-eng=00:00:02.5 _STATISTICS_TAGS-eng=x", "SOMEWHAT", {5, 2.5, 4}, 9},
      {"BPS-eng=9 DURATIOM-eng=00:00:02.5 _STATISTICS_TAGS-eng=x", "DURATION", {5, 3, 1}, 9},
      {"BPS=-9 DURATIOM=99:00:00 _STATISTICS_TAGS=x", "SOMEWHAT", {5, 3, 4}, 0},
      {"BPS=x DURATIOM=soon _STATISTICS_TAGS=x", "SOMEWHAT", {5, 3, 4}, 0},
      {"DURATIOM=00:00:01", "SOMEWHAT", {5, 3, 4}, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.tags << ", " << row.muxers);
    std::istringstream words(row.tags);
    std::string tags;
    for (std::string word; words >> word;) tags += " -metadata:s:a " + word;
    Ffmpeg(*folder,
           "-f lavfi -i testsrc=s=64x48:r=25:d=5 -itsoffset 2 -f lavfi -i sine=r=48000:d=3 -i "
           "text.srt -map 0 -map 1 -map 2 -c:v mpeg4 -c:a flac" +
               tags + " tagged.mkv");
    std::string bytes = ReadFile(Path("tagged.mkv"));
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>{"DURATION", row.muxers}, {"DURATIOM", "DURATION"}}) {
      for (std::size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; ++at) {
        bytes.replace(at, to.size(), to);
      }
    }
    WriteFile(Path("tagged.mkv"), bytes);
    const Ref<IMediaInfo> info = Describe(Path("tagged.mkv"));
    IProgramInfos* out = nullptr;
    ASSERT_EQ(info->GetIPrograms(&out), S_OK);
    const Ref<IProgramInfos> programs(out);
    const Ref<IProgramInfo> program = Item<IProgramInfo>(out, 0);
    IStreamInfos* lists[3] = {};
    ASSERT_EQ(program->GetVideoStreamInfos(&lists[0]), S_OK);
    ASSERT_EQ(program->GetAudioStreamInfos(&lists[1]), S_OK);
    ASSERT_EQ(program->GetSubPicStreamInfos(&lists[2]), S_OK);
    for (std::size_t i = 0; i < 3; ++i) {
      const Ref<IStreamInfos> owner(lists[i]);
      const Ref<IStreamInfo> stream = Item<IStreamInfo>(lists[i], 0);
      EXPECT_NEAR(stream->GetLength(), row.lengths[i], 0.0011) << i;
      EXPECT_EQ(stream->GetStartPTS(), (std::vector{0, 20'000'000, 10'000'000})[i]);
      EXPECT_EQ(stream->GetBitRate(), i == 1 ? row.bitRate : 0) << i;
    }
    EXPECT_NEAR(program->GetMediaLength(), 5, 0.0011);
  }
}

TEST_F(Decoder, YieldsPicturesAndFindsThemAgain) {
  // Odd sizes; one that is 4:2:0 in the file, with pictures out of order, and one that is not.
  Ffmpeg(*folder,
         "-f lavfi -i testsrc=s=63x47:r=25:d=3 -c:v mpeg4 -bf 2 -g 12 a.mp4 -c:v ffv1 -pix_fmt "
         "yuv444p b.mkv");
  Ffmpeg(*folder,
         "-i a.mp4 -f rawvideo -pix_fmt yuv420p a.mp4.yuv -i b.mkv -map 1 -f rawvideo -pix_fmt "
         "yuv420p "
         "-sws_flags bicubic b.mkv.yuv");
  constexpr std::size_t luma = 63 * 47;
  constexpr std::size_t size = luma + 2 * 32 * 24;
  for (const char* name : {"a.mp4", "b.mkv"}) {
    SCOPED_TRACE(name);
    const std::string all = ReadFile(Path(name + std::string(".yuv")));
    ASSERT_EQ(all.size(), 75 * size);
    Ref<IMediaDecoder> decoder;
    ASSERT_EQ(CreateDecoder(Path(name), nullptr, &decoder), S_OK);
    IMediaStream* out = nullptr;
    EXPECT_EQ(decoder->GetAudioStream(&out), E_FAIL);
    ASSERT_EQ(decoder->GetVideoStream(&out), S_OK);
    const Ref<IMediaStream> stream(out);
    EXPECT_EQ(stream->GetSampleEx(), nullptr);
    const auto expectPicture = [&](std::size_t i) {
      CZelSample* sample = stream->GetSampleEx();
      ASSERT_NE(sample, nullptr) << i;
      // Its copy in a sample of the host's own says and holds the same.
      CZelSample copy(AV_STREAM_VIDEO, FRAME_DATA_DECODED);
      ASSERT_EQ(copy.RemallocYUVFrame(1, 1, YUV_IMAGE_420P), S_OK);
      ASSERT_EQ(copy.FrameCopy(*sample), S_OK);
      for (const MEDIA_FRAME* frame : {sample->GetMediaFrame(), copy.GetMediaFrame()}) {
        EXPECT_NEAR(static_cast<double>(frame->llPTS), i * 400000.0, 5001) << i;
        EXPECT_NEAR(frame->nDuration, 400000, 10001) << i;
        const MEDIA_FRAME_YUV& yuv = frame->video.yuv;
        EXPECT_EQ((std::vector{yuv.nWidth, yuv.nHeight, yuv.nStride[0], yuv.nStride[1]}),
                  (std::vector{63, 47, 63, 32}));
        EXPECT_EQ(yuv.pPlane[1], yuv.pPlane[0] + luma);
        EXPECT_EQ(yuv.pPlane[2], yuv.pPlane[1] + 32 * 24);
        const auto* pixels = reinterpret_cast<const char*>(yuv.pPlane[0]);
        EXPECT_TRUE(all.compare(i * size, size, pixels, size) == 0) << i;
      }
      EXPECT_EQ(copy.GetCurrentPTS(), sample->GetCurrentPTS());
    };
    for (std::size_t i = 0; i < 75; ++i) {
      ASSERT_EQ(stream->Forward(), 0);
      expectPicture(i);
    }
    EXPECT_EQ(stream->Forward(), -1);
    EXPECT_EQ(stream->GetSampleEx(), nullptr);
    for (const std::size_t i : {40U, 0U, 74U, 13U, 14U, 13U, 60U}) {
      EXPECT_NEAR(stream->Seek(i * 0.04 + 0.02, 1), i * 0.04, 0.0006);
      if (i != 13) {
        EXPECT_EQ(stream->Forward(), 0);
      }
      expectPicture(i);
    }
    EXPECT_EQ(stream->Seek(3.5, 1), -1);
    EXPECT_EQ(stream->GetSampleEx(), nullptr);
  }
}

TEST_F(Decoder, ReadsOnAfterASeekToTheLastPicture) {
  // After a start at the last key picture, FFmpeg's decoder loses the last two pictures.
  Ffmpeg(*folder,
         "-f lavfi -i testsrc=s=64x48:r=25:d=4 -c:v libx264 -x264-params "
         "open-gop=1:keyint=12:bframes=5 -pix_fmt yuv420p open.mkv");
  Ref<IMediaDecoder> decoder;
  ASSERT_EQ(CreateDecoder(Path("open.mkv"), nullptr, &decoder), S_OK);
  IMediaStream* out = nullptr;
  ASSERT_EQ(decoder->GetVideoStream(&out), S_OK);
  const Ref<IMediaStream> stream(out);
  EXPECT_NEAR(stream->Seek(3.90, 1), 3.88, 1e-6);
  EXPECT_EQ(stream->Forward(), 0);
  for (const double time : {3.92, 3.96}) {
    EXPECT_EQ(stream->Forward(), 0);
    CZelSample* sample = stream->GetSampleEx();
    ASSERT_NE(sample, nullptr);
    EXPECT_NEAR(static_cast<double>(sample->GetCurrentPTS()), time * 1e7, 1);
  }
  EXPECT_EQ(stream->Forward(), -1);

  // A seek that starts anew finds no file; the stream goes on with what is open.
  EXPECT_GE(stream->Seek(1, 1), 0);
  ASSERT_EQ(std::rename(Path("open.mkv").c_str(), Path("gone.mkv").c_str()), 0);
  EXPECT_EQ(stream->Seek(0, 1), -1);
  EXPECT_EQ(stream->GetSampleEx(), nullptr);
  EXPECT_EQ(stream->Forward(), -1);
  EXPECT_NEAR(stream->Seek(2.02, 1), 2.0, 1e-6);
  EXPECT_NE(stream->GetSampleEx(), nullptr);
}

}  // namespace
}  // namespace zel::test
