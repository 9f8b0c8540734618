// The compositor against scripted streams: bytes delivered, exact order of calls, references.
#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "tests/compositor/ScriptedStream.h"
#include "tests/support/Allocations.h"
#include "zel/compositor/detail/DeliveryBuffer.h"

namespace zel::test {
namespace {

using Bytes = std::vector<unsigned char>;

bool IsSilent(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

/// Streams "in" and "src", and one log for the calls to both.
class CompositorTest : public testing::Test {
 protected:
  ScriptedStream* Input(Script script = {}) { return Keep("in", std::move(script)); }
  ScriptedStream* Source(Script script = {}) { return Keep("src", std::move(script)); }
  /// Makes new streams the input and the source, and returns the source.
  ScriptedStream* Play(Script input = {}, Script block = {}) {
    compositor->SetInputAudioStream(Input(std::move(input)));
    ScriptedStream* source = Source(std::move(block));
    compositor->AddByMediaStream(source);
    TakeLog();
    return source;
  }
  Log TakeLog() { return std::exchange(log, {}); }
  void TearDown() override {
    host.Close();
    for (const auto& stream : streams_) EXPECT_EQ(CountOf(stream.get()), 1U);
  }

  Log log;
  Host host;
  IAudioCompositor* const compositor = host.compositor.get();
  IMediaStream* const output = host.output;

 private:
  ScriptedStream* Keep(const char* name, Script script) {
    streams_.push_back(MakeComponent<ScriptedStream>(name, &log, std::move(script)));
    return streams_.back().get();
  }
  std::vector<Ref<ScriptedStream>> streams_;
};

TEST_F(CompositorTest, WithoutInputThereIsNothing) {
  Ref<IStreamInfo> info;
  EXPECT_EQ(output->Forward(), -1);
  EXPECT_EQ(output->Seek(3.0, 2), -1.0);
  EXPECT_EQ(output->Backward(), 0);
  EXPECT_TRUE(!output->GetSampleEx() && !output->GetOriginSampleEx());
  const HRESULT nothing[] = {
      output->ChangeStream(1), output->NotifyStreamMessage(1, 1, nullptr, nullptr),
      output->GetStreamInfo(info.Receive()), compositor->SetInputAudioStream(nullptr)};
  EXPECT_THAT(nothing, testing::Each(S_FALSE));
  EXPECT_EQ(output->GetStreamInfo(nullptr), E_POINTER);
  EXPECT_EQ(compositor->GetOutPutAudioStream(nullptr), E_POINTER);
  EXPECT_EQ(host.Now().pull, PULL_ENDED_NO_INPUT);
  EXPECT_EQ(compositor->AddByMediaStream(nullptr), E_INVALIDARG);
  EXPECT_EQ(compositor->Remove(), S_OK);
}

TEST_F(CompositorTest, IsTheOneClassAndMayBeAggregated) {
  ASSERT_EQ(g_cTemplates, 1);
  EXPECT_STREQ(g_Templates[0].name, L"Create AudioCompositor");
  EXPECT_EQ(g_Templates[0].classId, &CLSID_CAudioCompositor);
  ScriptedStream* outer = Input();
  Ref<IClassFactory> factory;
  DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
  Ref<IUnknown> inner;
  ASSERT_EQ(factory->CreateInstance(outer, IID_IUnknown, inner.ReceiveVoid()), S_OK);
  Ref<IAudioCompositor> face;
  Ref<IMediaStream> stream;
  ASSERT_EQ(inner->QueryInterface(IID_IAudioCompositor, face.ReceiveVoid()), S_OK);
  ASSERT_EQ(face->GetOutPutAudioStream(stream.Receive()), S_OK);
  EXPECT_EQ(CountOf(outer), 3U) << "references on its faces are the outer object's";
  EXPECT_EQ(CountOf(inner.get()), 1U);
  Ref<ICompositorDiagnosis> diagnosis;
  ASSERT_EQ(inner->QueryInterface(IID_ICompositorDiagnosis, diagnosis.ReceiveVoid()), S_OK);
  EXPECT_EQ(CountOf(outer), 4U);
  EXPECT_EQ(CountOf(inner.get()), 1U);
  EXPECT_TRUE(scombase::IsEqualObject(diagnosis.get(), outer));
  EXPECT_EQ(stream->QueryInterface(IID_IAudioCompositor, face.ReceiveVoid()), E_NOINTERFACE);
}

TEST_F(CompositorTest, ItsDiagnosisIsAnObjectThatKeepsItAlive) {
  Ref<ICompositorDiagnosis> diagnosis = host.Diagnosis();
  EXPECT_TRUE(scombase::IsEqualObject(diagnosis.get(), compositor));
  EXPECT_EQ(host.compositor.Detach()->Release(), 1U);
  EXPECT_EQ(diagnosis->GetDiagnosis(nullptr), E_POINTER);
  EXPECT_EQ(diagnosis->WaitForLoad(0), S_OK);
  EXPECT_EQ(diagnosis.Detach()->Release(), 0U);
}

TEST_F(CompositorTest, ReportsPullsThatGiveSomethingElse) {
  std::vector<PULL_RESULT> pulls;
  const Ref<ICompositorDiagnosis> diagnosis = host.Diagnosis();
  Watch note = [&](DIAGNOSIS_EVENT event, const SDiagnosis& now) {
    EXPECT_EQ(event, DIAGNOSIS_PULL_CHANGED);
    pulls.push_back(now.pull);
    EXPECT_EQ(output->GetSampleEx(), nullptr);
    EXPECT_EQ(output->Forward(), -1);
    EXPECT_EQ(output->Seek(1, 1), -1.0);
    EXPECT_EQ(compositor->SetInputAudioStream(nullptr), E_ZEL_STATE);
    EXPECT_EQ(diagnosis->WaitForLoad(0), E_ZEL_STATE);
    EXPECT_EQ(compositor->Remove(), S_OK) << "no lock is held";
    if (pulls.size() < 3) return;
    EXPECT_EQ(diagnosis->SetCallback(nullptr, nullptr), S_FALSE);
  };
  EXPECT_EQ(diagnosis->SetCallback(CallWatch, &note), S_OK);
  compositor->SetDelayTime(0.5);
  Play([](long n) { return Block{.pts = n == 0 ? -1 : n * 1'000'000}; });
  for (int i = 0; i < 9; ++i) host.Pull();
  Play();
  host.Pull();
  EXPECT_THAT(pulls, testing::ElementsAre(PULL_SILENT_NO_TIME, PULL_SILENT_BEFORE_DELAY,
                                          PULL_PASSED_NO_SOURCE));
}

TEST_F(CompositorTest, DescribesTheInput) {
  ScriptedStream* input = Input();
  StreamInfo& record = input->record;
  record.id = 0x10002;
  record.fourCC = 0x1234;
  record.state = 3;
  record.length = 12.5;
  record.bitRate = 99;
  record.startPTS = 5;
  record.ptsOffset = 6;
  record.videoInfo.reserved[51] = 8;
  std::wcsncpy(record.name, L"name", 64);
  std::wmemset(record.description, L'd', 128);
  StreamInfo expected = record;
  expected.description[127] = 0;  // Cut.
  expected.audioInfo.bitsPerSample = 16;
  record.profileValue = 7;  // Not carried over.
  ASSERT_EQ(compositor->SetInputAudioStream(input), S_OK);
  Ref<IStreamInfo> info;
  ASSERT_EQ(output->GetStreamInfo(info.Receive()), S_OK);
  EXPECT_EQ(CountOf(info.get()), 1U);
  StreamInfo& got = *static_cast<CStreamInfo*>(info.get())->GetStreamInfo();
  EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0);
}

TEST_F(CompositorTest, HandsOutTheFramesOfADescribedInputInOneSample) {
  ScriptedStream* input = Input();
  compositor->SetInputAudioStream(input);
  ASSERT_EQ(host.Pull(), &input->frame);
  EXPECT_EQ(input->frame.nFrameType, FRAME_DATA_DECODED);
  CZelSample* sample = output->GetSampleEx();
  EXPECT_EQ(sample->GetStreamType(), AV_STREAM_AUDIO);
  EXPECT_FALSE(IsSilent(host.PullBytes()));
  EXPECT_EQ(output->GetSampleEx(), sample);
  for (const HRESULT result : {E_FAIL, S_FALSE}) {
    input->infoResult = result;
    EXPECT_EQ(compositor->SetInputAudioStream(input), S_FALSE);
    EXPECT_EQ(CountOf(input), 2U) << "held all the same";
    EXPECT_EQ(host.Pull(), nullptr);
    EXPECT_EQ(host.Now().pull, PULL_ENDED_NO_DESCRIPTION);
    EXPECT_EQ(output->Forward(), 7);
  }
}

TEST_F(CompositorTest, PassesCallsToTheInput) {
  EXPECT_EQ(Play()->Backward(), -1) << "a stream's default";
  EXPECT_EQ(output->ChangeStream(3), 103);
  int a = 0;
  EXPECT_EQ(output->NotifyStreamMessage(1, 41, &a, nullptr), 55);
  output->NotifyStreamMessage(2, 41, nullptr, &a);
  output->NotifyStreamMessage(1, LLONG_MAX, nullptr, nullptr);
  EXPECT_NE(output->GetOriginSampleEx(), nullptr);
  compositor->SetDelayTime(0.5);
  EXPECT_EQ(compositor->GetDelayTime(), 0.5);
  EXPECT_EQ(output->Seek(2.0, 9), 2.25);
  EXPECT_EQ(TakeLog(), (Log{"in.ChangeStream 3", "in.Notify 1 42 1 0", "in.Notify 2 41 0 1",
                            "in.Notify 1 " + std::to_string(LLONG_MIN) + " 0 0",
                            "in.GetOriginSampleEx", "src.Seek 1.5 9", "in.Seek 2 9"}));
}

TEST_F(CompositorTest, RefusesWhatIsNoSourceAndKeepsTheOneBefore) {
  ScriptedStream* good = Source();
  compositor->SetInputAudioStream(Input());
  ASSERT_EQ(compositor->AddByMediaStream(good), S_OK);
  EXPECT_EQ(TakeLog(), Log{}) << "nothing was played: the source stays at its start";
  ScriptedStream* bad[] = {Source(), Source(), Source()};
  bad[0]->record.audioInfo.channels = 0;
  bad[1]->hasRecord = false;
  bad[2]->infoResult = E_FAIL;
  const HRESULT results[] = {
      compositor->AddByMediaStream(bad[0]), compositor->AddByMediaStream(bad[1]),
      compositor->AddByMediaStream(bad[2]), compositor->AddByMediaStream(output),
      compositor->SetInputAudioStream(output)};
  EXPECT_THAT(results, testing::Each(E_INVALIDARG));
  EXPECT_NE(host.Pull(), nullptr);
  EXPECT_EQ(CountOf(good), 2U);
  EXPECT_EQ(compositor->Remove(), S_OK);
  EXPECT_EQ(CountOf(good), 1U);
}

TEST_F(CompositorTest, TheSourceFindsACleanFrameInEveryPassAndMayFillIt) {
  ScriptedStream* input = Input([](long n) { return Block{.hasData = n != 4}; });
  ScriptedStream* source = Source([](long) { return Block{.bytes = 3000}; });
  const unsigned char* const& bytes = input->frame.audio.pData;
  int passes = 0;
  source->onSample = [&] {
    EXPECT_TRUE(IsSilent({bytes, bytes + 4096}));
    if (++passes == 1) input->GetSampleEx();  // Fills the frame again.
  };
  compositor->SetInputAudioStream(input);
  compositor->AddByMediaStream(source);
  host.Pull();
  EXPECT_EQ(passes, 2);
  // This one writes its sound into the frame that it is to replace. What waits of the other is
  // gone.
  compositor->AddByMediaStream(input);
  const Bytes heard = host.PullBytes();
  input->GetSampleEx();  // The same block, for the source has led to it.
  EXPECT_EQ(heard, (Bytes{bytes, bytes + 4096}));
  EXPECT_NE(host.Pull(), nullptr) << "the source has taken the frame's data away";
}

TEST_F(CompositorTest, BlocksWithoutSoundAreSilenceAndEndTheInput) {
  constexpr PULL_RESULT kEnd = PULL_ENDED_FRAME;
  constexpr PULL_RESULT kPassed = PULL_PASSED_NO_SOURCE;
  const std::tuple<const char*, Block, PULL_RESULT, PULL_RESULT> rows[] = {
      {"8 bits", {.bits = 8}, PULL_SILENT_NOT_PCM16, kPassed},
      {"24 bits", {.bits = 24}, PULL_SILENT_NOT_PCM16, kPassed},
      {"negative bits", {.bits = -64}, PULL_SILENT_NOT_PCM16, kPassed},
      {"no channels", {.channels = 0}, PULL_SILENT_NO_FORMAT, kPassed},
      {"no rate", {.rate = -1}, PULL_SILENT_NO_FORMAT, kPassed},
      {"no data", {.hasData = false}, PULL_SILENT_BAD_DATA, kEnd},
      {"negative size", {.bytes = -2}, PULL_SILENT_BAD_DATA, kEnd},
      {"a picture", {.streamType = AV_STREAM_VIDEO}, PULL_SILENT_NOT_AUDIO, kEnd},
      {"no frame", {.hasFrame = false}, PULL_SILENT_SOURCE_ENDED, PULL_ENDED_INPUT},
      {"no sample", {.hasSample = false}, PULL_SILENT_SOURCE_ENDED, PULL_ENDED_INPUT},
      {"no bytes", {.bytes = 0}, PULL_SOUND, kEnd},
      {"9 channels", {.channels = 9}, PULL_SILENT_CHANNELS, kPassed},
  };
  for (const auto& [what, block, ofSource, ofInput] : rows) {
    SCOPED_TRACE(what);
    const Script script = [first = block](long n) { return n == 0 ? first : Block{}; };
    Play({}, script)->position = -1;
    EXPECT_EQ(IsSilent(host.PullBytes()), block.bytes != 0) << "empty blocks are passed over";
    EXPECT_EQ(host.Now().pull, ofSource);
    EXPECT_FALSE(IsSilent(host.PullBytes())) << "the block after it is fine";
    EXPECT_EQ(host.Now().pull, PULL_SOUND);
    compositor->SetInputAudioStream(Input(script));
    EXPECT_EQ(host.Pull() == nullptr, ofInput != kPassed);
    EXPECT_EQ(host.Now().pull, ofInput);
  }
  compositor->SetInputAudioStream(nullptr);
}

TEST_F(CompositorTest, AnOutputThatCannotBeConvertedToIsSilent) {
  // No memory holds the result of the last one.
  constexpr PULL_RESULT kNoFormat = PULL_SILENT_NO_OUTPUT_FORMAT;
  for (const auto& [rate, channels, why] :
       {std::tuple(44100, 0, kNoFormat), {0, 2, kNoFormat}, {INT_MAX, 1, PULL_SILENT_NO_MEMORY}}) {
    ScriptedStream* input = Input();
    input->record.audioInfo = {rate, channels, 16, {}};
    compositor->SetInputAudioStream(input);
    compositor->AddByMediaStream(Source([](long) { return Block{.rate = 1}; }));
    EXPECT_TRUE(IsSilent(host.PullBytes())) << rate;
    EXPECT_EQ(host.Now().pull, why);
  }
}

TEST(DeliveryBuffer, GivesInOrderWhatItTookPastTheEndOfItsMemory) {
  DeliveryBuffer buffer;
  Bytes put, taken;
  std::mt19937 random(1);
  while (put.size() < 16 * DeliveryBuffer::kInitialCapacity) {
    const std::size_t count = random() % 300'000;
    short* samples = buffer.Reserve(count);
    std::generate_n(samples, count, [&] { return static_cast<short>(random()); });
    const auto* bytes = reinterpret_cast<unsigned char*>(samples);
    put.insert(put.end(), bytes, bytes + 2 * count);
    buffer.Commit();
    const std::size_t size = random() % (buffer.size() + 1);
    taken.resize(taken.size() + size);
    buffer.Take(taken.data() + taken.size() - size, size);
    ASSERT_EQ(buffer.size(), put.size() - taken.size());
  }
  EXPECT_EQ(std::memcmp(taken.data(), put.data(), taken.size()), 0);
}

// What is delivered, put together, is what the source's blocks convert to, put together.
TEST_F(CompositorTest, DeliversTheSourcesSoundWithoutGapsInFramesOfAnySize) {
  const int sizes[] = {4096, 3, 1000, 2, 999, 40'000, 4096, 1};
  const auto sourceBlock = [](long n) {
    Block block = {.channels = n % 9 < 5 ? 1 : 6, .rate = n % 16 < 8 ? 22050 : 44100};
    block.bytes = n % 5 == 0 ? 0 : block.channels * 2 * static_cast<int>(n % 7 * 123);
    if (n % 3 == 0) block.bits = n % 2 == 0 ? 0 : 20;  // Not given; as good as 16.
    return block;
  };
  Play([&](long n) { return Block{.bytes = sizes[n % std::size(sizes)]}; }, sourceBlock);
  Bytes delivered;
  for (int i = 0; i < 60; ++i) {
    const Bytes frame = host.PullBytes();
    ASSERT_EQ(frame.size(), static_cast<std::size_t>(sizes[i % std::size(sizes)]));
    delivered.insert(delivered.end(), frame.begin(), frame.end());
  }

  ScriptedStream* again = Source(sourceBlock);
  std::unique_ptr<CAudioConverter> converter;
  std::vector<short> expected;
  while (expected.size() * 2 < delivered.size()) {
    again->Forward();
    const MEDIA_FRAME_AUDIO& audio = again->GetSampleEx()->GetMediaFrame()->audio;
    if (converter == nullptr || converter->GetInputChannels() != audio.nChannels ||
        converter->GetInputSampleRate() != audio.nSampleRate) {
      converter =
          std::make_unique<CAudioConverter>(audio.nChannels, 2, audio.nSampleRate, 44100, 0);
    }
    converter->Put(reinterpret_cast<const short*>(audio.pData), audio.nDataSize / 2);
    const auto begin = expected.size();
    expected.resize(begin + static_cast<std::size_t>(converter->GetValidSize()));
    converter->Get(expected.data() + begin, static_cast<int>(expected.size() - begin));
  }
  EXPECT_EQ(std::memcmp(delivered.data(), expected.data(), delivered.size()), 0);
}

TEST_F(CompositorTest, ReadsTheSourceOnlyAsFarAsItMust) {
  const long times[] = {10'000'000, 15'000'000, 19'999'999};
  compositor->SetDelayTime(2.0);
  compositor->SetInputAudioStream(Input([&](long n) {
    return Block{.bytes = n < 11 ? 4096 : 4095, .pts = n < 3 ? times[n] : 20'000'000 + n - 3};
  }));
  host.Pull();
  ScriptedStream* source = Source([](long n) {
    const int bytes = n == 2 || n == 3 ? 8192 : n == 5 ? 2000 : 4096;
    return Block{.bytes = bytes, .hasSample = n != 6};
  });
  source->onSeek = [&] {
    source->onSeek = nullptr;
    host.Pull();  // The input goes on meanwhile. The source was once left behind for good.
  };
  TakeLog();
  compositor->AddByMediaStream(source);
  EXPECT_EQ(TakeLog(), (Log{"src.Seek -1 1", "in.Forward", "in.GetSampleEx", "src.Seek -0.5 1"}));
  const Log next = {"in.Forward", "in.GetSampleEx", "src.Forward", "src.GetSampleEx"};
  const Log none = {"in.Forward", "in.GetSampleEx"};
  const Log first = {"in.Forward", "in.GetSampleEx", "src.Seek 0 1", "src.GetSampleEx"};
  const std::tuple<const char*, Log, bool> pulls[] = {
      {"before the delay", none, true},
      {"at the delay, for which the request has waited", first, false},
      {"nothing waits", next, false},
      {"nothing waits, two frames come", next, false},
      {"exactly a frame waits", next, false},
      {"two frames wait", none, false},
      {"exactly a frame waits", next, false},
      {"exactly a frame waits, less than one comes", next, false},
      {"the source ends inside the frame", next, true},
      {"it is tried again, and an odd number of bytes is taken", next, false},
  };
  for (const auto& [what, calls, isSilent] : pulls) {
    SCOPED_TRACE(what);
    EXPECT_EQ(IsSilent(host.PullBytes()), isSilent);
    EXPECT_EQ(TakeLog(), calls);
  }
  output->Seek(3, 1);  // Drops the 2,001 bytes that wait.
  const Bytes frame = host.PullBytes();
  EXPECT_EQ(std::memcmp(frame.data(), source->frame.audio.pData, frame.size()), 0);
}

TEST_F(CompositorTest, SteadyStateAllocatesNothing) {
  ScriptedStream* input = Input();
  ScriptedStream* source =
      Source([](long) { return Block{.channels = 1, .rate = 22050, .bytes = 2048}; });
  input->log = source->log = nullptr;
  compositor->SetInputAudioStream(input);
  compositor->AddByMediaStream(source);
  for (int i = 0; i < 500; ++i) host.Pull();
  const long before = AllocationCount();
  for (int i = 0; i < 2000; ++i) ASSERT_NE(host.Pull(), nullptr);
  EXPECT_EQ(AllocationCount(), before);
}

}  // namespace
}  // namespace zel::test
