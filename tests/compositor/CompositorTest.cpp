// The compositor against scripted streams: bytes delivered, exact order of calls, references.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <random>
#include <thread>

#include "tests/compositor/ScriptedStream.h"
#include "tests/support/Allocations.h"
#include "zel/audio/AudioConverter.h"
#include "zel/base/EntryPoints.h"
#include "zel/compositor/AudioCompositor.h"

namespace {

using Bytes = std::vector<unsigned char>;

Block Plain(long n) {
  Block block;
  block.pts = n * 232'200;
  return block;
}

ULONG CountOf(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

/// A compositor made the way a host makes it.
class Host {
 public:
  Host() {
    void* out = nullptr;
    EXPECT_EQ(DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, &out), S_OK);
    auto* factory = static_cast<IClassFactory*>(out);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IAudioCompositor, &out), S_OK);
    factory->Release();
    compositor = static_cast<IAudioCompositor*>(out);
    EXPECT_EQ(compositor->GetOutPutAudioStream(&output), S_OK);
    EXPECT_EQ(CountOf(output), 2u);
  }
  ~Host() { Close(); }
  void Close() {
    if (compositor == nullptr) return;
    output->Release();
    EXPECT_EQ(compositor->Release(), 0u);
    compositor = nullptr;
  }
  MEDIA_FRAME* Pull() {
    output->Forward();
    CZelSample* sample = output->GetSampleEx();
    return sample != nullptr ? sample->GetMediaFrame() : nullptr;
  }
  Bytes PullBytes() {
    const MEDIA_FRAME* frame = Pull();
    if (frame == nullptr) return {};
    return {frame->audio.pData, frame->audio.pData + frame->audio.nDataSize};
  }
  IAudioCompositor* compositor = nullptr;
  IMediaStream* output = nullptr;
};

bool IsSilent(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

/// Input "in" and source "src", and one log for the calls to both.
class CompositorTest : public testing::Test {
 protected:
  ScriptedStream* Input(std::function<Block(long)> script = Plain, long length = 1000) {
    return Keep(new ScriptedStream("in", &log, std::move(script), length));
  }
  ScriptedStream* Source(std::function<Block(long)> script = Plain, long length = 1000,
                         int seed = 5) {
    return Keep(new ScriptedStream("src", &log, std::move(script), length, seed));
  }
  ScriptedStream* Keep(ScriptedStream* stream) {
    m_streams.push_back(stream);
    return stream;
  }
  Log TakeLog() { return std::exchange(log, {}); }
  void TearDown() override {
    host.Close();
    for (ScriptedStream* stream : m_streams) {
      EXPECT_EQ(CountOf(static_cast<IMediaStream*>(stream)), 1u);
      stream->Release();
    }
    EXPECT_EQ(g_liveStreams, 0);
  }

  Log log;
  Host host;

 private:
  std::vector<ScriptedStream*> m_streams;
};

/// The pull path as a plain text-book version: it clears, moves and copies everything every time.
class Model {
 public:
  ~Model() { SetInput(nullptr); }
  void SetInput(IMediaStream* input) {
    if (m_input != nullptr) m_input->Release();
    Drop();
    m_input = input;
    if (m_input == nullptr) return;
    m_input->AddRef();
    IStreamInfo* info = nullptr;
    if (m_input->GetStreamInfo(&info) != S_OK) return;
    m_rate = info->GetAudioInfo()->sampleRate;
    m_channels = info->GetAudioInfo()->channels;
    info->Release();
  }
  void Add(IMediaStream* source) {
    IStreamInfo* info = nullptr;
    source->GetStreamInfo(&info);
    info->Release();
    if (m_position >= 0) source->Seek(static_cast<double>(m_position) / 10'000'000 - m_delay, 1);
    m_position = -1;
    Drop();
    m_source = source;
    m_source->AddRef();
  }
  void Drop() {
    if (m_source != nullptr) m_source->Release();
    m_source = nullptr;
    m_converter.reset();
    m_buffer.clear();
  }
  void SetDelay(double seconds) {
    m_delay = seconds;
    m_reposition = true;
  }
  double Seek(double seconds, int mode) {
    m_buffer.clear();
    if (m_source != nullptr) m_source->Seek(seconds - m_delay, mode);
    return m_input->Seek(seconds, mode);
  }
  Bytes Pull() {
    m_input->Forward();
    CZelSample* sample = m_input->GetSampleEx();
    MEDIA_FRAME* frame = sample != nullptr ? sample->GetMediaFrame() : nullptr;
    if (frame == nullptr || frame->audio.nDataSize == 0) return {};
    Bytes out(frame->audio.pData, frame->audio.pData + frame->audio.nDataSize);
    Replace(*frame, out);
    m_position = frame->llPTS;
    return out;
  }

 private:
  void Replace(const MEDIA_FRAME& frame, Bytes& out) {
    const double time = static_cast<double>(frame.llPTS) / 10'000'000;
    if (time - m_delay < 0) {
      std::fill(out.begin(), out.end(), 0);
      return;
    }
    if (!m_reposition && m_buffer.size() > out.size()) return Take(out);
    for (;;) {
      if (m_source == nullptr) return;
      if (m_reposition) {
        m_source->Seek(time - m_delay, 1);
        m_buffer.clear();
        m_reposition = false;
      } else {
        m_source->Forward();
      }
      std::fill(out.begin(), out.end(), 0);
      CZelSample* sample = m_source->GetSampleEx();
      const MEDIA_FRAME* block = sample != nullptr ? sample->GetMediaFrame() : nullptr;
      if (block == nullptr) return;
      const MEDIA_FRAME_AUDIO& audio = block->audio;
      const int width = audio.nBitsPerSample / 8 != 0 ? audio.nBitsPerSample / 8 : 2;
      if (m_converter == nullptr || m_converter->GetInputChannels() != audio.nChannels ||
          m_converter->GetInputSampleRate() != audio.nSampleRate) {
        m_converter = std::make_unique<CAudioConverter>(audio.nChannels, m_channels,
                                                        audio.nSampleRate, m_rate, 0x100000);
      }
      m_converter->Put(reinterpret_cast<const short*>(audio.pData), audio.nDataSize / width);
      std::vector<short> ready(static_cast<std::size_t>(m_converter->GetValidSize()));
      m_converter->Get(ready.data(), static_cast<int>(ready.size()));
      const auto* bytes = reinterpret_cast<const unsigned char*>(ready.data());
      m_buffer.insert(m_buffer.end(), bytes, bytes + ready.size() * 2);
      if (m_buffer.size() >= out.size()) return Take(out);
    }
  }
  void Take(Bytes& out) {
    const auto end = m_buffer.begin() + static_cast<std::ptrdiff_t>(out.size());
    std::copy(m_buffer.begin(), end, out.begin());
    m_buffer.erase(m_buffer.begin(), end);
  }

  IMediaStream* m_input = nullptr;
  IMediaStream* m_source = nullptr;
  std::unique_ptr<CAudioConverter> m_converter;
  Bytes m_buffer;
  int m_rate = 0;
  int m_channels = 0;
  std::int64_t m_position = -1;
  double m_delay = 0;
  bool m_reposition = false;
};

/// A script that changes format and size at random, the same for the same seed.
std::function<Block(long)> Wild(unsigned seed, bool isInput) {
  return [seed, isInput](long n) {
    std::mt19937 random(seed * 1000u + static_cast<unsigned>(isInput ? n : n / 8));
    const auto pick = [&](std::initializer_list<int> values) {
      return *(values.begin() + random() % values.size());
    };
    Block block;
    block.channels = pick({1, 2, 2, 2, 5, 6, 8});
    block.rate = pick({44100, 44100, 22050, 48000, 8000});
    block.bits = pick({16, 16, 0, 20});
    std::mt19937 sizes(seed + static_cast<unsigned>(n) * 77u);
    const int options[] = {4096, 4096, 1000, 2, 3, 4608, 16384, isInput ? 4096 : 0, 40000};
    block.bytes = options[sizes() % std::size(options)];
    if (!isInput) block.bytes &= ~1;
    block.pts = n * 1'000'000;
    return block;
  };
}

}  // namespace

TEST_F(CompositorTest, WithoutInputThereIsNothing) {
  EXPECT_EQ(host.output->Forward(), -1);
  EXPECT_EQ(host.output->GetSampleEx(), nullptr);
  EXPECT_EQ(host.output->Seek(3.0, 2), -1.0);
  EXPECT_EQ(host.output->ChangeStream(1), S_FALSE);
  EXPECT_EQ(host.output->Backward(), 0);
  EXPECT_EQ(host.output->GetOriginSampleEx(), nullptr);
  EXPECT_EQ(host.output->NotifyStreamMessage(1, 1, nullptr, nullptr), S_FALSE);
  IStreamInfo* info = nullptr;
  EXPECT_EQ(host.output->GetStreamInfo(&info), S_FALSE);
  EXPECT_EQ(host.output->GetStreamInfo(nullptr), E_POINTER);
  EXPECT_EQ(host.compositor->GetOutPutAudioStream(nullptr), E_POINTER);
  EXPECT_EQ(host.compositor->SetInputAudioStream(nullptr), S_FALSE);
  EXPECT_EQ(host.compositor->AddByMediaStream(nullptr), E_INVALIDARG);
  EXPECT_EQ(host.compositor->Remove(), S_OK);
  void* out = &host;
  EXPECT_EQ(host.output->QueryInterface(IID_IStreamInfo, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(host.output->QueryInterface(IID_IAudioCompositor, &out), S_OK);
  EXPECT_EQ(out, host.compositor);
  host.compositor->Release();
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
  record.profileValue = 7;
  record.videoInfo.reserved[51] = 8;
  std::wcsncpy(record.name, L"name", 64);
  std::wmemset(record.description, L'd', 127);
  ASSERT_EQ(host.compositor->SetInputAudioStream(input), S_OK);
  IStreamInfo* info = nullptr;
  ASSERT_EQ(host.output->GetStreamInfo(&info), S_OK);
  EXPECT_EQ(CountOf(info), 1u);
  EXPECT_EQ(info->GetType(), AV_STREAM_AUDIO);
  EXPECT_EQ(info->GetID(), 0x10002u);
  EXPECT_EQ(info->GetFourCC(), 0x1234u);
  EXPECT_EQ(info->GetState(), 3);
  EXPECT_EQ(info->GetLength(), 12.5);
  EXPECT_EQ(info->GetBitRate(), 99u);
  EXPECT_EQ(info->GetStartPTS(), 5);
  EXPECT_EQ(info->GetPTSOffset(), 6);
  EXPECT_EQ(info->GetProfileValue(), 0) << "not carried over";
  EXPECT_EQ(info->GetChannelIndex(), 0) << "starts from zero";
  EXPECT_EQ(info->GetVideoInfo()->reserved[51], 8);
  EXPECT_EQ(info->GetAudioInfo()->sampleRate, 44100);
  EXPECT_EQ(info->GetAudioInfo()->bitsPerSample, 16);
  wchar_t* text = nullptr;
  ASSERT_EQ(info->GetName(&text), S_OK);
  EXPECT_STREQ(text, L"name");
  SysFreeString(text);
  ASSERT_EQ(info->GetDescription(&text), S_OK);
  EXPECT_EQ(std::wstring(text), std::wstring(127, L'd'));
  SysFreeString(text);
  info->Release();
}

TEST_F(CompositorTest, AnInputWithoutDescriptionYieldsNoSound) {
  ScriptedStream* input = Input();
  input->infoResult = S_FALSE;
  EXPECT_EQ(host.compositor->SetInputAudioStream(input), S_FALSE);
  EXPECT_EQ(CountOf(static_cast<IMediaStream*>(input)), 2u) << "held all the same";
  auto* description = new CStreamInfo;
  description->AddRef();
  input->infoAllTheSame = description;
  EXPECT_EQ(host.compositor->SetInputAudioStream(input), S_FALSE);
  EXPECT_EQ(description->Release(), 0u) << "what comes with a failure is released";
  EXPECT_EQ(host.Pull(), nullptr);
  EXPECT_EQ(host.output->Forward(), 7);
}

TEST_F(CompositorTest, PassesCallsToTheInput) {
  ScriptedStream* input = Input();
  ScriptedStream* source = Source();
  host.compositor->SetInputAudioStream(input);
  host.compositor->AddByMediaStream(source);
  TakeLog();
  EXPECT_EQ(host.output->ChangeStream(3), 103);
  int a = 0;
  EXPECT_EQ(host.output->NotifyStreamMessage(1, 41, &a, nullptr), 55);
  EXPECT_EQ(host.output->NotifyStreamMessage(2, 41, nullptr, &a), 55);
  host.output->NotifyStreamMessage(1, LLONG_MAX, nullptr, nullptr);
  EXPECT_NE(host.output->GetOriginSampleEx(), nullptr);
  host.compositor->SetDelayTime(0.5);
  EXPECT_EQ(host.output->Seek(2.0, 9), 2.25);
  void* const none = nullptr;
  char notes[3][80];
  std::snprintf(notes[0], 80, "in.Notify(1, 42, %p, %p)", static_cast<void*>(&a), none);
  std::snprintf(notes[1], 80, "in.Notify(2, 41, %p, %p)", none, static_cast<void*>(&a));
  std::snprintf(notes[2], 80, "in.Notify(1, %lld, %p, %p)", LLONG_MIN, none, none);
  EXPECT_EQ(TakeLog(), (Log{"in.ChangeStream(3)", notes[0], notes[1], notes[2],
                            "in.GetOriginSampleEx", "src.Seek(1.5, 9)", "in.Seek(2, 9)"}));
}

TEST_F(CompositorTest, RefusesSourcesWithoutSoundAndKeepsTheOneBefore) {
  ScriptedStream* good = Source();
  ScriptedStream* bad = Source();
  ASSERT_EQ(host.compositor->AddByMediaStream(good), S_OK);
  bad->record.audioInfo.channels = 0;
  EXPECT_EQ(host.compositor->AddByMediaStream(bad), E_INVALIDARG);
  bad->hasRecord = false;
  EXPECT_EQ(host.compositor->AddByMediaStream(bad), E_INVALIDARG);
  bad->infoResult = E_FAIL;
  EXPECT_EQ(host.compositor->AddByMediaStream(bad), E_INVALIDARG);
  EXPECT_EQ(CountOf(static_cast<IMediaStream*>(good)), 2u);
  EXPECT_EQ(host.compositor->Remove(), S_OK);
  EXPECT_EQ(CountOf(static_cast<IMediaStream*>(good)), 1u);
}

TEST_F(CompositorTest, WithoutASourceFramesPassUnchanged) {
  ScriptedStream* input = Input();
  host.compositor->SetInputAudioStream(input);
  for (int i = 0; i < 3; ++i) {
    MEDIA_FRAME* frame = host.Pull();
    ASSERT_EQ(frame, &input->frame()) << "the input's own frame";
    EXPECT_EQ(frame->nFrameType, FRAME_DATA_DECODED);
    EXPECT_EQ(frame->llPTS, i * 232'200);
    EXPECT_FALSE(IsSilent({frame->audio.pData, frame->audio.pData + 4096}));
  }
  CZelSample* sample = host.output->GetSampleEx();
  EXPECT_EQ(sample, host.output->GetSampleEx()) << "one sample, re-pointed";
  EXPECT_EQ(sample->GetStreamType(), AV_STREAM_AUDIO);
}

TEST_F(CompositorTest, SilenceBeforeTheDelayAndSoundFromIt) {
  const auto script = [](long n) {
    Block block;
    block.pts = 19'999'999 + n;  // The second frame is exactly at the delay.
    return block;
  };
  ScriptedStream* source = Source();
  host.compositor->SetInputAudioStream(Input(script));
  host.compositor->AddByMediaStream(source);
  host.compositor->SetDelayTime(2.0);
  EXPECT_EQ(host.compositor->GetDelayTime(), 2.0);
  TakeLog();
  EXPECT_TRUE(IsSilent(host.PullBytes()));
  EXPECT_EQ(TakeLog(), (Log{"in.Forward", "in.GetSampleEx"})) << "the source is not touched";
  EXPECT_FALSE(IsSilent(host.PullBytes()));
  // Repositioning replaces the step forward of its pass. The copy needs strictly more than a frame
  // to be made from the buffer alone, so the next pull reads on.
  EXPECT_EQ(TakeLog(), (Log{"in.Forward", "in.GetSampleEx", "src.Seek(0, 1)", "src.GetSampleEx"}));
  host.PullBytes();
  EXPECT_EQ(TakeLog(), (Log{"in.Forward", "in.GetSampleEx", "src.Forward", "src.GetSampleEx"}));
}

TEST_F(CompositorTest, TheShortcutNeedsMoreThanAFrame) {
  host.compositor->SetInputAudioStream(Input());
  host.compositor->AddByMediaStream(Source([](long) {
    Block block;
    block.bytes = 2 * 4096;
    return block;
  }));
  host.PullBytes();
  TakeLog();
  host.PullBytes();  // Exactly a frame is buffered: one more block is read, two frames stay.
  EXPECT_EQ(TakeLog().size(), 4u);
  host.PullBytes();  // Two frames are buffered.
  EXPECT_EQ(TakeLog(), (Log{"in.Forward", "in.GetSampleEx"}));
}

TEST_F(CompositorTest, AWishToRepositionWaitsForASource) {
  host.compositor->SetInputAudioStream(Input());
  host.compositor->SetDelayTime(-1.5);
  EXPECT_FALSE(IsSilent(host.PullBytes()));  // The input's own sound.
  host.compositor->AddByMediaStream(Source());
  TakeLog();
  host.PullBytes();
  EXPECT_EQ(TakeLog(),
            (Log{"in.Forward", "in.GetSampleEx", "src.Seek(1.52322, 1)", "src.GetSampleEx"}));
}

TEST_F(CompositorTest, ASourceAddedDuringPlaybackStartsWhereTheInputIs) {
  host.compositor->SetInputAudioStream(Input([](long n) {
    Block block;
    block.pts = 30'000'000 + n;
    return block;
  }));
  host.Pull();
  TakeLog();
  host.compositor->AddByMediaStream(Source());
  EXPECT_EQ(TakeLog(), (Log{"src.GetStreamInfo", "src.Seek(3, 1)"}));
  host.compositor->AddByMediaStream(Source());
  EXPECT_EQ(TakeLog(), Log{"src.GetStreamInfo"}) << "the position is used once";
}

// Frames that were delivered while a new source sought once left it behind for good.
TEST_F(CompositorTest, ASourceSeeksAgainWhenFramesPassMeanwhile) {
  host.compositor->SetInputAudioStream(Input([](long n) {
    Block block;
    block.pts = n * 10'000'000;
    return block;
  }));
  host.Pull();
  host.Pull();
  ScriptedStream* source = Source();
  source->onSeek = [&] {
    source->onSeek = nullptr;
    host.Pull();
    TakeLog();
  };
  host.compositor->AddByMediaStream(source);
  EXPECT_EQ(TakeLog(), Log{"src.Seek(2, 1)"});
}

TEST_F(CompositorTest, ASourceThatEndsInsideAFrameLeavesItSilent) {
  ScriptedStream* source = Source(
      [](long n) {
        Block block;
        block.bytes = 3000;
        block.hasSample = n != 1;
        return block;
      },
      4);
  host.compositor->SetInputAudioStream(Input());
  host.compositor->AddByMediaStream(source);
  EXPECT_TRUE(IsSilent(host.PullBytes()));
  // What was buffered is kept; the next call tries the source again.
  const Bytes joined = host.PullBytes();
  EXPECT_FALSE(IsSilent(joined));
  source->position = 0;
  const MEDIA_FRAME* first = source->GetSampleEx()->GetMediaFrame();
  EXPECT_EQ(std::memcmp(joined.data(), first->audio.pData, 3000), 0);
  source->position = 100;
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(IsSilent(host.PullBytes()));
  EXPECT_NE(host.Pull(), nullptr) << "only the input ends the stream";
}

TEST_F(CompositorTest, ABlockThatIsNoPcmLeavesTheFrameSilent) {
  struct Row {
    const char* what;
    std::function<void(Block&)> change;
  };
  const Row rows[] = {
      {"8 bits", [](Block& b) { b.bits = 8; }},
      {"24 bits", [](Block& b) { b.bits = 24; }},
      {"negative bits", [](Block& b) { b.bits = -64; }},
      {"no channels", [](Block& b) { b.channels = 0; }},
      {"no rate", [](Block& b) { b.rate = -1; }},
      {"no data", [](Block& b) { b.hasData = false; }},
      {"negative size", [](Block& b) { b.bytes = -2; }},
      {"a picture", [](Block& b) { b.streamType = AV_STREAM_VIDEO; }},
      {"no frame", [](Block& b) { b.hasFrame = false; }},
  };
  host.compositor->SetInputAudioStream(Input());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ScriptedStream* source = Source([&row](long n) {
      Block block;
      if (n == 0) row.change(block);
      return block;
    });
    ASSERT_EQ(host.compositor->AddByMediaStream(source), S_OK);
    host.output->Seek(0, 0);
    source->position = -1;
    EXPECT_TRUE(IsSilent(host.PullBytes()));
    EXPECT_FALSE(IsSilent(host.PullBytes())) << "the block after it is fine";
  }
  host.compositor->Remove();
}

TEST_F(CompositorTest, AnInputFrameWithoutSoundIsTheEnd) {
  for (const auto& change : std::vector<std::function<void(Block&)>>{
           [](Block& b) { b.bytes = 0; }, [](Block& b) { b.bytes = -4; },
           [](Block& b) { b.hasData = false; }, [](Block& b) { b.hasFrame = false; },
           [](Block& b) { b.hasSample = false; },
           [](Block& b) { b.streamType = AV_STREAM_VIDEO; }}) {
    host.compositor->SetInputAudioStream(Input([&change](long) {
      Block block;
      change(block);
      return block;
    }));
    host.compositor->AddByMediaStream(Source());
    EXPECT_EQ(host.Pull(), nullptr);
  }
  host.compositor->SetInputAudioStream(nullptr);
}

TEST_F(CompositorTest, AStreamMayBeItsOwnSource) {
  // The frame is cleared before the source is read, and here they are the same bytes.
  ScriptedStream* input = Input();
  host.compositor->SetInputAudioStream(input);
  host.compositor->AddByMediaStream(input);
  EXPECT_TRUE(IsSilent(host.PullBytes()));
}

TEST_F(CompositorTest, AnOutputThatCannotBeConvertedToIsSilent) {
  ScriptedStream* input = Input();
  input->record.audioInfo.channels = 0;
  host.compositor->SetInputAudioStream(input);
  host.compositor->AddByMediaStream(Source());
  EXPECT_TRUE(IsSilent(host.PullBytes()));
  input->record.audioInfo = {INT_MAX, 1, 16, {}};
  host.compositor->SetInputAudioStream(input);
  host.compositor->AddByMediaStream(Source([](long) {
    Block block;
    block.rate = 1;
    return block;
  }));
  EXPECT_TRUE(IsSilent(host.PullBytes())) << "a result that no memory holds";
}

TEST_F(CompositorTest, FollowsTheModelThroughRandomUse) {
#if defined(__SANITIZE_THREAD__)
  const unsigned seeds = 6;
#else
  const unsigned seeds = 60;
#endif
  for (unsigned seed = 0; seed < seeds; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Host fresh;
    Log modelLog;
    Model model;
    const auto pair = [&](const char* name, bool isInput, auto&& use) {
      const unsigned script = static_cast<unsigned>(random());
      ScriptedStream* streams[2];
      for (int i = 0; i < 2; ++i) {
        streams[i] = new ScriptedStream(name, i == 0 ? &log : &modelLog, Wild(script, isInput), 60,
                                        static_cast<int>(script % 1000));
        streams[i]->record.audioInfo = {
            script % 2 != 0 ? 44100 : 48000, script % 3 != 0 ? 2 : 6, 16, {}};
      }
      use(streams[0], streams[1]);
      for (ScriptedStream* stream : streams) stream->Release();
    };
    const auto setInput = [&](IMediaStream* real, IMediaStream* copy) {
      fresh.compositor->SetInputAudioStream(real);
      model.SetInput(copy);
    };
    pair("in", true, setInput);
    for (int step = 0; step < 150; ++step) {
      const double seconds = static_cast<double>(random() % 700) / 100 - 1;
      switch (random() % 24) {
        case 0:
          fresh.compositor->SetDelayTime(seconds);
          model.SetDelay(seconds);
          break;
        case 1:
          EXPECT_EQ(fresh.output->Seek(seconds, 3), model.Seek(seconds, 3));
          break;
        case 2:
          fresh.compositor->Remove();
          model.Drop();
          break;
        case 3:
          if (random() % 4 == 0) pair("in", true, setInput);
          break;
        case 4:
        case 5:
          pair("src", false, [&](IMediaStream* real, IMediaStream* copy) {
            EXPECT_EQ(fresh.compositor->AddByMediaStream(real), S_OK);
            model.Add(copy);
          });
          break;
        default:
          ASSERT_EQ(fresh.PullBytes(), model.Pull()) << "step " << step;
      }
      ASSERT_EQ(TakeLog(), std::exchange(modelLog, {})) << "step " << step;
    }
  }
}

TEST_F(CompositorTest, SteadyStateAllocatesNothing) {
  ScriptedStream* input = Input(Plain, 100000);
  ScriptedStream* source = Source(
      [](long n) {
        Block block = Plain(n);
        block.channels = 1;
        block.rate = 22050;
        block.bytes = 2048;
        return block;
      },
      100000);
  input->quiet = source->quiet = true;
  host.compositor->SetInputAudioStream(input);
  host.compositor->AddByMediaStream(source);
  for (int i = 0; i < 500; ++i) host.Pull();
  const long before = AllocationCount();
  for (int i = 0; i < 5000; ++i) ASSERT_NE(host.Pull(), nullptr);
  EXPECT_EQ(AllocationCount(), before);
}

TEST_F(CompositorTest, AnotherThreadMayAddRemoveDelayAndSeek) {
  ScriptedStream* input = Input(Plain, LONG_MAX);
  input->quiet = true;
  input->position = -1;
  host.compositor->SetInputAudioStream(input);
  std::atomic<bool> stop = false;
  std::thread other([&] {
    std::mt19937 random(1);
    while (!stop) {
      auto* source = new ScriptedStream("src", nullptr, Plain, 50);
      host.compositor->AddByMediaStream(source);
      source->Release();
      host.compositor->SetDelayTime(static_cast<double>(random() % 3));
      std::this_thread::yield();
      if (random() % 2 != 0) host.compositor->Remove();
      host.compositor->GetDelayTime();
    }
  });
  for (int i = 0; i < 3000; ++i) {
    MEDIA_FRAME* frame = host.Pull();
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(frame->llPTS, i * 232'200LL) << "no frame of the input is lost";
  }
  stop = true;
  other.join();
}
