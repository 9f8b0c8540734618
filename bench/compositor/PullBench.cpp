// What the road of one pulled frame costs, step by step, in ns per output frame and as a multiple
// of memcpy of the same bytes. A benchmark's counters: ns_per_frame, and x_memcpy from a memcpy run
// interleaved with the work itself.
//
//   pull_bench --benchmark_filter=Converter
//   pull_bench --level avx2    (zel/detail/Level.h)

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include "bench/Compare.h"
#include "zel/audio/AudioConverter.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/sample/Sample.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<short> Noise(std::size_t n) {
  std::mt19937 random(1);
  std::vector<short> v(n);
  for (short& s : v) s = static_cast<short>(random());
  return v;
}

// Sums up the time of the work and of memcpy over the same run.
class Meter {
 public:
  template <class Work>
  void Run(int times, Work&& work) {
    const auto start = Clock::now();
    for (int i = 0; i < times; ++i) samples_ += work();
    work_ += Clock::now() - start;
  }
  // Copies blocks of `samples` samples, as often as the last Run made blocks.
  void Copy(int times, int samples) {
    const std::size_t bytes = static_cast<std::size_t>(samples) * sizeof(short);
    from_.resize(static_cast<std::size_t>(samples));
    to_.resize(from_.size());
    const auto start = Clock::now();
    for (int i = 0; i < times; ++i) {
      std::memcpy(to_.data(), from_.data(), bytes);
      benchmark::DoNotOptimize(to_.data());
      benchmark::ClobberMemory();
    }
    copy_ += Clock::now() - start;
  }
  void Report(benchmark::State& state, int channels) const {
    const double frames = static_cast<double>(samples_) / channels;
    state.counters["ns_per_frame"] =
        std::chrono::duration<double, std::nano>(work_).count() / frames;
    state.counters["x_memcpy"] =
        std::chrono::duration<double>(work_).count() / std::chrono::duration<double>(copy_).count();
    state.SetItemsProcessed(static_cast<int64_t>(frames));
  }

 private:
  Clock::duration work_{}, copy_{};
  long long samples_ = 0;
  std::vector<short> from_, to_;
};

constexpr int kTimes = 64;

// Blocks of 1,024 input frames through a converter: Put and Get of everything.
void Converter(benchmark::State& state, int inChannels, int outChannels, int inRate, int outRate) {
  CAudioConverter converter(inChannels, outChannels, inRate, outRate, 0);
  const auto in = Noise(static_cast<std::size_t>(1024 * inChannels));
  std::vector<short> out(1024 * 6 * 8);
  const auto block = [&] {
    converter.Put(in.data(), 1024 * inChannels);
    const int made = converter.Get(out.data(), static_cast<int>(out.size()));
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    return made;
  };
  const int made = block();
  Meter meter;
  for (auto _ : state) {
    meter.Run(kTimes, block);
    meter.Copy(kTimes, made);
  }
  meter.Report(state, outChannels);
}
BENCHMARK_CAPTURE(Converter, mono_22050_to_stereo_44100, 1, 2, 22050, 44100);
BENCHMARK_CAPTURE(Converter, stereo_48000_to_44100, 2, 2, 48000, 44100);
BENCHMARK_CAPTURE(Converter, stereo_44100_to_48000, 2, 2, 44100, 48000);
BENCHMARK_CAPTURE(Converter, six_48000_to_stereo_44100, 6, 2, 48000, 44100);
BENCHMARK_CAPTURE(Converter, six_44100_to_six_48000, 6, 6, 44100, 48000);
BENCHMARK_CAPTURE(Converter, stereo_to_mono, 2, 1, 44100, 44100);
BENCHMARK_CAPTURE(Converter, same_format, 2, 2, 44100, 44100);

// A stream that yields the same 1,024 frames again and again, at no cost of its own.
class Loop final : public zel::Component<IMediaStream> {
 public:
  Loop(int channels, int rate) : pcm_(Noise(static_cast<std::size_t>(1024 * channels))) {
    info_->GetStreamInfo()->audioInfo = {rate, channels, 16, {}};
    frame_.nStreamType = AV_STREAM_AUDIO;
    frame_.audio = {rate,
                    channels,
                    16,
                    reinterpret_cast<unsigned char*>(pcm_.data()),
                    static_cast<int>(pcm_.size() * sizeof(short)),
                    0};
    sample_.FrameAttach(&frame_);
  }
  ~Loop() override { sample_.FrameAttach(nullptr); }
  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override {
    *ppInfo = zel::Ref<IStreamInfo>::Share(info_.get()).Detach();
    return S_OK;
  }
  CZelSample* GetSampleEx() override { return &sample_; }
  int Forward() override { return 0; }
  double Seek(double seconds, int) override { return seconds; }

 private:
  std::vector<short> pcm_;
  zel::Ref<CStreamInfo> info_ = zel::MakeComponent<CStreamInfo>();
  MEDIA_FRAME frame_{};
  CZelSample sample_{AV_STREAM_AUDIO, FRAME_DATA_DECODED};
};

// Forward and GetSampleEx of the compositor, per pulled frame of 1,024 x stereo at 44,100 Hz.
void Pull(benchmark::State& state, int channels, int rate, double delay) {
  const auto input = zel::MakeComponent<Loop>(2, 44100);
  const auto source = zel::MakeComponent<Loop>(channels, rate);
  zel::Ref<IClassFactory> factory;
  DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
  zel::Ref<IAudioCompositor> compositor;
  factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
  zel::Ref<IMediaStream> output;
  compositor->GetOutPutAudioStream(output.Receive());
  compositor->SetInputAudioStream(input.get());
  compositor->AddByMediaStream(source.get());
  compositor->SetDelayTime(delay);

  const auto pull = [&output] {
    output->Forward();
    const MEDIA_FRAME* frame = output->GetSampleEx()->GetMediaFrame();
    benchmark::DoNotOptimize(frame->audio.pData);
    return frame->audio.nDataSize / 2;
  };
  for (int i = 0; i < 100; ++i) pull();
  Meter meter;
  for (auto _ : state) {
    meter.Run(kTimes, pull);
    meter.Copy(kTimes, 2048);
  }
  meter.Report(state, 2);
}
BENCHMARK_CAPTURE(Pull, same_format, 2, 44100, 0.0);
BENCHMARK_CAPTURE(Pull, mono_22050, 1, 22050, 0.0);
BENCHMARK_CAPTURE(Pull, stereo_48000, 2, 48000, 0.0);
BENCHMARK_CAPTURE(Pull, six_48000, 6, 48000, 0.0);
BENCHMARK_CAPTURE(Pull, silence_before_the_delay, 2, 44100, 1.0);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc >= 3 && argv[1] == std::string_view("--level")) {
    zel::bench::UseLevelNamed(argv[0], argv[2]);
    argv[2] = argv[0];
    argc -= 2;
    argv += 2;
  }
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
