// Sound of files of every kind, and their descriptions.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
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
  static void SetUpTestSuite() {
    folder = new Folder;
    // Noise, so that no two places look the same; and what an independent program decodes.
    Ffmpeg(*folder,
           "-f lavfi -i anoisesrc=r=44100:a=0.4:seed=1:d=4 -f lavfi -i "
           "anoisesrc=r=44100:a=0.4:seed=2:d=4 -filter_complex '[0][1]amerge' source.wav");
    std::string encode = "-i source.wav";
    std::string inputs;
    std::string decode;
    for (const Kind& kind : kKinds) {
      encode += std::string(" ") + kind.arguments + " " + kind.file;
      inputs += std::string(" -i ") + kind.file;
      decode += " -map " + std::to_string(&kind - kKinds) + ":a -f s16le " + kind.file + ".pcm";
    }
    Ffmpeg(*folder, encode);
    Ffmpeg(*folder, inputs + decode);
  }
  static void TearDownTestSuite() { delete folder; }

  static std::string Path(const std::string& name) { return *folder / name; }

  static Folder* folder;
};

Folder* Decoder::folder = nullptr;

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

/// Reads a new stream to its end, frame by frame.
void ExpectAll(const Audio& audio, const std::string& all) {
  EXPECT_EQ(audio.Frame(), nullptr) << "a new stream is before its first sample";
  std::string pcm;
  std::int64_t duration = 0;
  while (audio.stream->Forward() == 0) {
    const MEDIA_FRAME* frame = audio.Frame();
    ASSERT_NE(frame, nullptr);
    const MEDIA_FRAME_AUDIO& sound = frame->audio;
    // The count of samples, unbroken, also where the container's stamps are coarser.
    const auto samples = static_cast<double>(pcm.size() / 4);
    ASSERT_EQ(frame->llPTS, std::llround(samples * kTicksPerSecond / sound.nSampleRate));
    duration += frame->nDuration;
    pcm.append(reinterpret_cast<const char*>(sound.pData),
               static_cast<std::size_t>(sound.nDataSize));
  }
  EXPECT_EQ(audio.Frame(), nullptr);
  EXPECT_EQ(audio.stream->Forward(), -1);
  EXPECT_TRUE(pcm == all);
  EXPECT_NEAR(static_cast<double>(duration) / kTicksPerSecond, 4, 0.06);
}

void ExpectSeek(const Audio& audio, double place, const std::vector<std::int16_t>& all,
                bool lossless) {
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
  EXPECT_NEAR(reached, static_cast<double>(sample) / rate, 1e-9);
  EXPECT_EQ(frame->llPTS, std::llround(static_cast<double>(sample) * kTicksPerSecond / rate));
  std::vector<std::int16_t> got;
  for (int i = 0; i < 6 && audio.Frame() != nullptr; ++i, audio.stream->Forward()) {
    const auto* pcm = reinterpret_cast<const std::int16_t*>(audio.Frame()->audio.pData);
    got.insert(got.end(), pcm, pcm + audio.Frame()->audio.nDataSize / 2);
  }
  const std::size_t at = static_cast<std::size_t>(sample) * 2;
  ASSERT_LE(at + got.size(), all.size());
  // White noise that is off by one sample differs by about twice its own energy.
  EXPECT_LE(Difference(got.data(), all.data() + at, got.size()), lossless ? 0 : 0.1);
}

TEST_F(Decoder, YieldsAndFindsWhatAnIndependentDecoderYields) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.file);
    const std::string bytes = ReadFile(Path(kind.file + std::string(".pcm")));
    const std::vector<std::int16_t> all = Samples(bytes);
    // The grid of frames is learnt on the way: a new stream, and one that was read to its end.
    const Audio fresh(Path(kind.file));
    const Audio read(Path(kind.file));
    ExpectAll(read, bytes);
    for (const Audio* audio : {&fresh, &read}) {
      for (const double place : {1.0, 0.0, 3.7, 0.00001, 2.123456, 2.1, 2.2, 0.5, 3.99, 1.0 / 3}) {
        ExpectSeek(*audio, place, all, kind.lossless);
      }
      EXPECT_EQ(audio->stream->Seek(100, 1), -1);
      EXPECT_EQ(audio->Frame(), nullptr);
      EXPECT_EQ(audio->stream->Forward(), -1);
      EXPECT_EQ(audio->stream->Seek(std::numeric_limits<double>::quiet_NaN(), 1), -1);
      EXPECT_EQ(audio->Failure(), "");
      EXPECT_EQ(audio->stream->Seek(-1, 1), 0);
      EXPECT_TRUE(!kind.lossless || audio->Rest() == bytes);
    }
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
    const Audio whole(Path(name));
    whole.All();
    EXPECT_EQ(whole.Failure(), "");
    const std::string bytes = ReadFile(Path(name));
    WriteFile(Path(std::string("cut.") + name), bytes.substr(0, bytes.size() * 6 / 10 + 1));
    const Audio cut(Path(std::string("cut.") + name));
    EXPECT_GT(cut.All().size(), 1.5 * 44100 * 4);
    EXPECT_NE(cut.Failure(), "");
    cut.stream->Seek(0.5, 1);
    EXPECT_NE(cut.Failure(), "") << "a seek forgives nothing";
  }
  // Sizes that programs write into pipes are no sizes.
  std::string wave = ReadFile(Path("s16.wav"));
  for (const std::uint32_t size : {0U, 0xFFFFFFFFU, 0x7FFFF000U}) {
    std::memcpy(wave.data() + wave.find("data") + 4, &size, 4);
    WriteFile(Path("piped.wav"), wave);
    const Audio audio(Path("piped.wav"));
    EXPECT_TRUE(audio.All() == ReadFile(Path("s16.wav.pcm"))) << size;
    EXPECT_EQ(audio.Failure(), "") << size;
  }
}

TEST_F(Decoder, ReportsLossesInTheMiddleButNotTagsAtTheEdges) {
  for (const char* name : {"flac.flac", "aac.aac"}) {
    std::string bytes = ReadFile(Path(name));
    for (std::size_t i = 0; i < 6000; ++i) bytes[bytes.size() / 2 + i] = static_cast<char>(i * 7);
    WriteFile(Path("damaged"), bytes);
    const Audio damaged(Path("damaged"));
    damaged.All();
    EXPECT_NE(damaged.Failure(), "") << name;
  }
  WriteFile(Path("tagged.mp3"),
            "junk" + ReadFile(Path("plain.mp3")) + "TAG" + std::string(125, 'x'));
  const Audio tagged(Path("tagged.mp3"));
  EXPECT_TRUE(tagged.All() == ReadFile(Path("plain.mp3.pcm")));
  EXPECT_EQ(tagged.Failure(), "");
}

TEST_F(Decoder, RefusesWhatIsNoPlainMediaFileButNoNames) {
  const std::string wave = ReadFile(Path("s16.wav"));
  std::string numbers;
  for (int i = 0; i < 20'000; ++i) numbers += std::to_string(i) + "\n";
  const std::pair<const char*, std::string> files[] = {
      {"empty.wav", ""},
      {"noise.mp4", std::string(5000, '\xA5')},
      {"header.wav", wave.substr(0, 30)},
      {"list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\ns16.wav\n#EXT-X-ENDLIST\n"},
      {"list.ffconcat", "ffconcat version 1.0\nfile s16.wav\n"},
      {"numbers.txt", numbers}};
  std::vector<std::string> refused = {Path("fifo.wav"),
                                      Path(""),
                                      Path("missing.wav"),
                                      "",
                                      "file:" + Path("s16.wav"),
                                      "concat:" + Path("s16.wav"),
                                      "http:x",
                                      "/dev/zero",
                                      "pipe:0"};
  for (const auto& [name, bytes] : files) {
    WriteFile(Path(name), bytes);
    refused.push_back(Path(name));
  }
  ASSERT_EQ(mkfifo(Path("fifo.wav").c_str(), 0600), 0);
  for (const std::string& path : refused) {
    SCOPED_TRACE(path);
    OpenFile(path, nullptr, E_INVALIDARG);
    Describe(path, E_INVALIDARG);
  }
  EXPECT_EQ(Manager()->CreateDecoder(nullptr, 0, nullptr, 11, nullptr), E_POINTER);
  EXPECT_EQ(Manager()->OpenMediaInfo(nullptr, 11, nullptr), E_POINTER);

  for (const char* name :
       {"concat:a|b.wav", "http:x", "100%d.wav", "%03d.png", "-i", "a b'\"$.wav", "\xE9.wav",
        "\xF0\x9D\x84\x9E \xD0\x9C\xE9\x9F\xB3", "a\nb.mp4", "file:x.mp3", "\xF0\x9D"}) {
    WriteFile(Path(name), wave);
    EXPECT_TRUE(Audio(Path(name)).All() == ReadFile(Path("s16.wav.pcm"))) << name;
  }
}

TEST_F(Decoder, RemixesAndMovesTheOriginBetweenReads) {
  const Audio audio(Path("ac3.ts"));
  const auto info = [&] {
    return Obtain<IStreamInfo>([&](auto out) { return audio.stream->GetStreamInfo(out); });
  };
  const std::int64_t start = info()->GetStartPTS();
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
    EXPECT_EQ(audio.Frame()->audio.nChannels, expected);
    EXPECT_GT(audio.Frame()->audio.nDataSize, 0);
    EXPECT_EQ(info()->GetAudioInfo()->channels, expected);
    audio.stream->Forward();
  }
  EXPECT_EQ(audio.Failure(), "");
}

/// What the manager says of a file with one program.
struct Described {
  explicit Described(const std::string& path) : media(Describe(path)) {
    const auto programs = Obtain<IProgramInfos>([&](auto out) { return media->GetIPrograms(out); });
    EXPECT_EQ(programs->GetCount(), 1U);
    program = Obtain<IProgramInfo>([&](auto out) { return programs->GetItem(0, out); });
  }
  Ref<IStreamInfo> Stream(HRESULT (IProgramInfo::*list)(IStreamInfos**),
                          unsigned long index = 0) const {
    const auto streams =
        Obtain<IStreamInfos>([&](auto out) { return (program.get()->*list)(out); });
    return Obtain<IStreamInfo>([&](auto out) { return streams->GetItem(index, out); });
  }
  Ref<IMediaInfo> media;
  Ref<IProgramInfo> program;
};

std::wstring Text(IStreamInfo* stream, HRESULT (IStreamInfo::*getter)(wchar_t**)) {
  wchar_t* text = nullptr;
  EXPECT_EQ((stream->*getter)(&text), S_OK);
  std::wstring copy = text;
  SysFreeString(text);
  return copy;
}

constexpr auto kVideo = &IProgramInfo::GetVideoStreamInfos;
constexpr auto kAudio = &IProgramInfo::GetAudioStreamInfos;
constexpr auto kText = &IProgramInfo::GetSubPicStreamInfos;

TEST_F(Decoder, DescribesStreams) {
  Ffmpeg(*folder,
         "-f lavfi -i testsrc=s=64x48:r=25:d=1,setsar=4/3 -i source.wav -f lavfi -i "
         "sine=r=48000:d=1 -map 0 -map 1 -map 2 -t 1 -c:v ffv1 -pix_fmt yuv422p10le -c:a pcm_s16le "
         "-c:a:0 flac -metadata:s:a:0 language=deu -metadata:s:a:1 title=\xC3\xBC one.mkv "
         "-map 0 -t 1 -c:v libx264 -pix_fmt yuv420p -profile:v main -level 3.1 -bf 3 -x264-params "
         "b-adapt=0:b-pyramid=normal main.mp4 -map 0 -map 1 -t 1 -c:v png -disposition:v "
         "attached_pic covered.mp3");
  const Described mkv(Path("one.mkv"));
  EXPECT_NEAR(mkv.media->GetMediaLength(), 1, 0.05);
  EXPECT_EQ(mkv.media->GetSeekCapacity(), 1);
  const Ref<IStreamInfo> first = mkv.Stream(kAudio, 0);
  const Ref<IStreamInfo> second = mkv.Stream(kAudio, 1);
  EXPECT_EQ(first->GetID(), 0x10001U);
  EXPECT_EQ(second->GetID(), 0x10002U);
  EXPECT_EQ(first->GetAudioInfo()->sampleRate, 44100);
  EXPECT_EQ(first->GetAudioInfo()->bitsPerSample, 16);
  EXPECT_EQ(second->GetAudioInfo()->channels, 1);
  EXPECT_EQ(first->GetFourCC(), 0x43414C46U) << "FLAC";
  EXPECT_GE(first->GetExtraDataLength(), 34U);
  EXPECT_EQ(Text(first.get(), &IStreamInfo::GetLanguageDesc), L"deu");
  EXPECT_EQ(Text(second.get(), &IStreamInfo::GetName), L"\u00FC");
  EXPECT_EQ(second->GetBitRate(), 768'000U);
  EXPECT_EQ(mkv.program->GetBitrate(), 768'000) << "the sum of what is known";

  // As in the file, and as delivered.
  const Ref<IStreamInfo> picture = mkv.Stream(kVideo);
  const auto source = kernaldec::Unpack(picture->GetVideoSrcInfo());
  const auto delivered = kernaldec::Unpack(picture->GetVideoInfo());
  ASSERT_TRUE(source && delivered);
  EXPECT_EQ((std::vector{source->width, source->height, source->aspectNumerator,
                         source->aspectDenominator, source->bitDepth}),
            (std::vector{64, 48, 4, 3, 10}));
  EXPECT_EQ(source->frameRateNumerator, 25 * source->frameRateDenominator);
  EXPECT_EQ(delivered->bitDepth, 8);
  EXPECT_EQ(delivered->height, 48);
  EXPECT_FALSE(kernaldec::Unpack(first->GetVideoInfo())) << "sound has no picture";
  EXPECT_FALSE(kernaldec::Unpack(nullptr));

  // As the encoder was told; B-frames that refer to B-frames come two pictures late.
  const Ref<IStreamInfo> main = Described(Path("main.mp4")).Stream(kVideo);
  EXPECT_EQ((std::vector{main->GetProfileValue(), main->GetLevelValue(), main->GetMaxBFrames()}),
            (std::vector{77, 31, 2}));
  EXPECT_EQ(picture->GetMaxBFrames(), 0);

  // A cover is no video: it has no rate, and the program does not go by it.
  EXPECT_EQ(mkv.program->GetTimeStampReferenceStreamID(), 0x10000U);
  EXPECT_EQ(source->isCover, 0);
  const Described covered(Path("covered.mp3"));
  EXPECT_EQ(covered.program->GetTimeStampReferenceStreamID(), covered.Stream(kAudio)->GetID());
  const auto cover = kernaldec::Unpack(covered.Stream(kVideo)->GetVideoSrcInfo());
  EXPECT_TRUE(cover && cover->isCover == 1 && cover->frameRateNumerator == 0);
}

TEST_F(Decoder, OpensStreamsByTheirIds) {
  Ffmpeg(*folder,
         "-f lavfi -i testsrc=s=64x48:r=25:d=1 -i source.wav -f lavfi -i sine=r=48000:d=1 -map 0 "
         "-map 1 -map 2 -t 1 -c:v mpeg2video -c:a mp2 -program program_num=3:st=0:st=1 -program "
         "program_num=7:st=2 two.ts -map 1 -map 2 -t 1 -c:a flac sounds.mkv");
  // The streams of the second program are found by its ids, and by nothing else.
  DecoderSelection selection{sizeof(DecoderSelection), 0, 7, 0x70002, {}};
  const Audio chosen(Path("two.ts"), &selection);
  chosen.stream->Forward();
  EXPECT_EQ(chosen.Frame()->audio.nSampleRate, 48000);
  EXPECT_EQ(chosen.stream->ChangeStream(1), E_INVALIDARG) << "not in this program";
  for (const auto& [program, stream] : {std::pair{7U, 0x70001U}, {3U, 0x70002U}, {1U, 0x10001U}}) {
    selection.programId = program;
    selection.streamId = stream;
    OpenFile(Path("two.ts"), &selection, E_INVALIDARG);
  }
  selection.size = 0;
  const Audio changed(Path("sounds.mkv"), &selection);
  EXPECT_EQ(changed.stream->ChangeStream(2), E_INVALIDARG);
  EXPECT_EQ(changed.stream->ChangeStream(-1), E_INVALIDARG);
  ASSERT_EQ(changed.stream->ChangeStream(1), S_OK);
  changed.stream->Forward();
  EXPECT_EQ(changed.Frame()->audio.nChannels, 1);
  EXPECT_EQ(changed.Frame()->llPTS, 0);

  // What is not there is not opened: text has neither sound nor picture, sound no picture.
  WriteFile(Path("text.srt"), "1\n00:00:01,000 --> 00:00:02,000\nHello\n");
  for (const char* name : {"text.srt", "sounds.mkv"}) {
    const Ref<IMediaDecoder> decoder = OpenFile(Path(name));
    const HRESULT hasSound = name[0] == 's' ? S_OK : E_FAIL;
    Obtain<IMediaStream>([&](auto out) { return decoder->GetVideoStream(out); }, E_FAIL);
    const auto sound =
        Obtain<IMediaStream>([&](auto out) { return decoder->GetAudioStream(out); }, hasSound);
    if (sound) {
      EXPECT_EQ(sound.get(),
                Obtain<IMediaStream>([&](auto out) { return decoder->GetAudioStream(out); }).get())
          << "the same one again";
    }
  }
  EXPECT_EQ(Described(Path("text.srt")).program->GetTimeStampReferenceStreamID(), 0U);
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
    const Described file(Path("tagged.mkv"));
    const std::tuple<decltype(kVideo), std::int64_t, std::uint32_t> streams[] = {
        {kVideo, 0, 0}, {kAudio, 20'000'000, row.bitRate}, {kText, 10'000'000, 0}};
    for (std::size_t i = 0; i < 3; ++i) {
      const auto& [list, start, bitRate] = streams[i];
      const Ref<IStreamInfo> stream = file.Stream(list);
      EXPECT_NEAR(stream->GetLength(), row.lengths[i], 0.0011) << i;
      EXPECT_EQ(stream->GetStartPTS(), start) << i;
      EXPECT_EQ(stream->GetBitRate(), bitRate) << i;
    }
    EXPECT_NEAR(file.program->GetMediaLength(), 5, 0.0011);
  }
}

}  // namespace
}  // namespace zel::test
