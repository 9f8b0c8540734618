// CAudioConverter and IntermixAudio beside what else one would use: 16-bit samples in, 16-bit
// samples out, one core, blocks of 1,024 input frames.
#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/Compare.h"
#include "zel/audio/AudioConverter.h"
#include "zel/audio/IntermixAudio.h"

#ifdef ZEL_WITH_SAMPLERATE
#include <samplerate.h>
#endif
#ifdef ZEL_WITH_SPEEXDSP
#include <speex/speex_resampler.h>
#endif
#ifdef ZEL_WITH_SOXR
#include <soxr.h>
#endif
#if defined(ZEL_WITH_LIBSWRESAMPLE) && defined(ZEL_WITH_LIBAVUTIL)
#define ZEL_WITH_SWR 1
extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}
#endif

// The plain loops get the best code that the compiler makes of them for this processor.
#if defined(__x86_64__) && !defined(__clang__)
#define ZEL_ALL_LEVELS \
  __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"), optimize("O3")))
#else
#define ZEL_ALL_LEVELS
#endif

namespace {

using zel::bench::Case;
using zel::bench::Comparison;
using zel::bench::Keep;
using zel::bench::Peer;

constexpr int kBlock = 1024;
constexpr std::size_t kRoom = kBlock * 8 * 4;

// Noise with a normal distribution of this standard deviation.
std::vector<short> Noise(std::size_t n, double deviation, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0, deviation);
  std::vector<short> v(n);
  for (short& s : v) {
    s = static_cast<short>(std::fmin(std::fmax(normal(random), -32767), 32767));
  }
  return v;
}

struct Format {
  int inChannels, outChannels, inRate, outRate;
};

// What peers that convert rates only need besides, as plain loops.
ZEL_ALL_LEVELS void Double(const short* in, int frames, short* out) {
  for (int i = 0; i < frames; ++i) out[2 * i] = out[2 * i + 1] = in[i];
}

ZEL_ALL_LEVELS void Halve(const short* in, int frames, short* out) {
  for (int i = 0; i < frames; ++i) {
    out[i] = static_cast<short>(in[2 * i] / 2 + in[2 * i + 1] / 2);
  }
}

short Clamp(int v) {
  return static_cast<short>(v > 32767 ? 32767 : v < -32767 ? -32767 : v);
}

ZEL_ALL_LEVELS void FoldSix(const short* in, int frames, short* out) {
  for (int i = 0; i < frames; ++i, in += 6) {
    const int both = in[2] / 2 + in[3] / 2;
    out[2 * i] = Clamp(in[0] + both + in[4] / 4);
    out[2 * i + 1] = Clamp(in[1] + both + in[5] / 4);
  }
}

// A rate converter of `channels` channels as a function of its input; returns the frames made.
using Resample = std::function<int(const short* in, int frames, short* out)>;

// Adds the channel stage in front of (folding) or behind (doubling) a rate conversion.
std::function<void()> WithChannels(const Format& f, const short* in, Resample resample) {
  auto middle = std::make_shared<std::vector<short>>(kRoom);
  auto out = std::make_shared<std::vector<short>>(kRoom);
  return [=] {
    if (f.inChannels == 1 && f.outChannels == 2) {
      Double(middle->data(), resample(in, kBlock, middle->data()), out->data());
    } else if (f.inChannels == 6 && f.outChannels == 2) {
      FoldSix(in, kBlock, middle->data());
      resample(middle->data(), kBlock, out->data());
    } else {
      resample(in, kBlock, out->data());
    }
    Keep(out->data());
  };
}

int RateChannels(const Format& f) {
  return f.inChannels < f.outChannels ? f.inChannels : f.outChannels;
}

std::vector<Peer> RatePeers(const Format& f, const short* in) {
  std::vector<Peer> peers;
  [[maybe_unused]] const int channels = RateChannels(f);
  [[maybe_unused]] const auto add = [&](const char* name, Resample resample) {
    peers.push_back({name, WithChannels(f, in, std::move(resample))});
  };
#ifdef ZEL_WITH_SPEEXDSP
  for (int quality : {0, 3}) {
    int error;
    const std::shared_ptr<SpeexResamplerState> speex(
        speex_resampler_init(static_cast<spx_uint32_t>(channels),
                             static_cast<spx_uint32_t>(f.inRate),
                             static_cast<spx_uint32_t>(f.outRate), quality, &error),
        speex_resampler_destroy);
    add(quality == 0 ? "speexdsp, quality 0" : "speexdsp, quality 3",
        [speex](const short* from, int frames, short* to) {
          auto n = static_cast<spx_uint32_t>(frames);
          spx_uint32_t made = kRoom / 8;
          speex_resampler_process_interleaved_int(speex.get(), from, &n, to, &made);
          return static_cast<int>(made);
        });
  }
#endif
#ifdef ZEL_WITH_SAMPLERATE
  int error;
  const std::shared_ptr<SRC_STATE> src(src_new(SRC_LINEAR, channels, &error), src_delete);
  const auto a = std::make_shared<std::vector<float>>(kRoom);
  const auto b = std::make_shared<std::vector<float>>(kRoom);
  add("libsamplerate, linear",
      [src, a, b, channels, ratio = static_cast<double>(f.outRate) / f.inRate](
          const short* from, int frames, short* to) {
        src_short_to_float_array(from, a->data(), frames * channels);
        SRC_DATA data = {};
        data.data_in = a->data();
        data.data_out = b->data();
        data.input_frames = frames;
        data.output_frames = kRoom / 8;
        data.src_ratio = ratio;
        src_process(src.get(), &data);
        const int made = static_cast<int>(data.output_frames_gen);
        src_float_to_short_array(b->data(), to, made * channels);
        return made;
      });
#endif
#ifdef ZEL_WITH_SOXR
  const auto io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
  const auto quality = soxr_quality_spec(SOXR_QQ, 0);
  const auto runtime = soxr_runtime_spec(1);
  const std::shared_ptr<struct soxr> soxr(
      soxr_create(f.inRate, f.outRate, static_cast<unsigned>(channels), nullptr, &io, &quality,
                  &runtime),
      soxr_delete);
  add("soxr, quick", [soxr](const short* from, int frames, short* to) {
    std::size_t made = 0;
    soxr_process(soxr.get(), from, static_cast<std::size_t>(frames), nullptr, to, kRoom / 8, &made);
    return static_cast<int>(made);
  });
#endif
#ifdef ZEL_WITH_SWR
  // It converts channels, too. (filter_size=1 would be nearest neighbour and linear phase steps,
  // not linear interpolation; cubic has 4 taps.)
  SwrContext* context = nullptr;
  AVChannelLayout inLayout, outLayout;
  av_channel_layout_default(&inLayout, f.inChannels);
  av_channel_layout_default(&outLayout, f.outChannels);
  swr_alloc_set_opts2(&context, &outLayout, AV_SAMPLE_FMT_S16, f.outRate, &inLayout,
                      AV_SAMPLE_FMT_S16, f.inRate, 0, nullptr);
  av_opt_set(context, "filter_type", "cubic", 0);
  av_opt_set_int(context, "filter_size", 4, 0);
  swr_init(context);
  const std::shared_ptr<SwrContext> swr(context, [](SwrContext* c) { swr_free(&c); });
  const auto out = std::make_shared<std::vector<short>>(kRoom);
  peers.push_back({"swresample, cubic 4 taps", [swr, in, out] {
                     auto* to = reinterpret_cast<std::uint8_t*>(out->data());
                     const auto* from = reinterpret_cast<const std::uint8_t*>(in);
                     swr_convert(swr.get(), &to, kRoom / 8, &from, kBlock);
                     Keep(out->data());
                   }});
#endif
  return peers;
}

using Loop = void (*)(const short*, int, short*);

// `plain` is the peer of a conversion at the same rate.
void AddConversion(Comparison& comparison, const char* name, const Format& f, Loop plain,
                   zel::bench::Goal goal) {
  if (!comparison.Wants(name)) return;
  const auto in = std::make_shared<std::vector<short>>(
      Noise(static_cast<std::size_t>(kBlock * f.inChannels), 6000));
  const auto out = std::make_shared<std::vector<short>>(kRoom);
  const auto converter =
      std::make_shared<CAudioConverter>(f.inChannels, f.outChannels, f.inRate, f.outRate, 0x100000);
  const double frames = static_cast<double>(kBlock) * f.outRate / f.inRate;
  std::vector<Peer> peers;
  if (plain == nullptr) {
    peers = RatePeers(f, in->data());
  } else {
    peers.push_back({"plain vectorised loop", [=] {
                       plain(in->data(), kBlock, out->data());
                       Keep(out->data());
                     }});
  }
  comparison.Add({.name = name,
                  .item = "output frame",
                  .items = frames,
                  .bytes = static_cast<std::size_t>(frames) *
                           static_cast<std::size_t>(f.outChannels) * sizeof(short),
                  .ours =
                      [=] {
                        converter->Put(in->data(), kBlock * f.inChannels);
                        converter->Get(out->data(), static_cast<int>(kRoom));
                        Keep(out->data());
                      },
                  .peers = std::move(peers),
                  .goal = goal});
}

// A block in and as much out, behind a million samples that stay in the queue, beside the same with
// an empty queue: what is held must cost nothing.
void AddLongQueue(Comparison& comparison) {
  const auto in = std::make_shared<std::vector<short>>(Noise(std::size_t{2} * kBlock, 6000));
  const auto out = std::make_shared<std::vector<short>>(kRoom);
  const auto run = [=](int held) {
    const auto converter = std::make_shared<CAudioConverter>(2, 2, 44100, 48000, 0x400000);
    while (converter->GetValidSize() < held) converter->Put(in->data(), 2 * kBlock);
    return [=] {
      const int before = converter->GetValidSize();
      const int after = converter->Put(in->data(), 2 * kBlock);
      converter->Get(out->data(), after - before);
      Keep(out->data());
    };
  };
  comparison.Add({.name = "2 channels 44,100 to 48,000 Hz behind a million samples",
                  .item = "output frame",
                  .items = kBlock * 48000.0 / 44100,
                  .ours = run(1000000),
                  .peers = {{"with an empty queue", run(0)}}});
}

// A saturating add of all inputs: what a mixer without a gain does.
#define ZEL_SATURATING_ADD(name, isa, vector, bits, load, store, adds)                   \
  __attribute__((target(isa))) void name(short** inputs, int count, int n, short* out) { \
    for (int i = 0; i + bits / 16 <= n; i += bits / 16) {                                \
      vector sum = load(reinterpret_cast<const vector*>(inputs[0] + i));                 \
      for (int k = 1; k < count; ++k) {                                                  \
        sum = adds(sum, load(reinterpret_cast<const vector*>(inputs[k] + i)));           \
      }                                                                                  \
      store(reinterpret_cast<vector*>(out + i), sum);                                    \
    }                                                                                    \
  }
ZEL_SATURATING_ADD(AddSse2, "sse2", __m128i, 128, _mm_loadu_si128, _mm_storeu_si128, _mm_adds_epi16)
ZEL_SATURATING_ADD(AddAvx2, "avx2", __m256i, 256, _mm256_loadu_si256, _mm256_storeu_si256,
                   _mm256_adds_epi16)
ZEL_SATURATING_ADD(AddAvx512, "avx512f,avx512bw", __m512i, 512, _mm512_loadu_si512,
                   _mm512_storeu_si512, _mm512_adds_epi16)

using Add = void (*)(short**, int, int, short*);
Add BestAdd() {
  if (__builtin_cpu_supports("avx512bw")) return AddAvx512;
  return __builtin_cpu_supports("avx2") ? AddAvx2 : AddSse2;
}

void AddMix(Comparison& comparison, const char* name, int inputs, double sumDeviation,
            zel::bench::Goal goal) {
  if (!comparison.Wants(name)) return;
  constexpr int kSamples = 4096;
  const auto memory = std::make_shared<std::vector<std::vector<short>>>();
  const auto pointers = std::make_shared<std::vector<short*>>();
  for (int i = 0; i < inputs; ++i) {
    memory->push_back(
        Noise(kSamples, sumDeviation / std::sqrt(inputs), static_cast<unsigned>(i + 1)));
  }
  for (auto& m : *memory) pointers->push_back(m.data());
  const auto out = std::make_shared<std::vector<short>>(kSamples);
  const Add add = BestAdd();
  comparison.Add({.name = name,
                  .item = "sample",
                  .items = kSamples,
                  .bytes = kSamples * sizeof(short),
                  .ours =
                      [=] {
                        IntermixAudio(pointers->data(), inputs, kSamples, out->data());
                        Keep(out->data());
                      },
                  .peers = {{"saturating add",
                             [=] {
                               (void)memory;
                               add(pointers->data(), inputs, kSamples, out->data());
                               Keep(out->data());
                             }}},
                  .goal = goal});
}

}  // namespace

int main(int argc, char** argv) {
  Comparison comparison("audio", argc, argv, zel::bench::Kernels::kOfALevel);
  AddConversion(comparison, "1 channel 22,050 to 2 channels 44,100 Hz", {1, 2, 22050, 44100},
                nullptr, {1.5, 2.4, "speexdsp, quality 0"});
  AddConversion(comparison, "2 channels 48,000 to 44,100 Hz", {2, 2, 48000, 44100}, nullptr,
                {1.5, 2.4, "swresample, cubic 4 taps"});
  AddConversion(comparison, "2 channels 44,100 to 48,000 Hz", {2, 2, 44100, 48000}, nullptr,
                {1.5, 2.4, "swresample, cubic 4 taps"});
  AddConversion(comparison, "6 channels 48,000 to 2 channels 44,100 Hz", {6, 2, 48000, 44100},
                nullptr, {1.5, 3, "soxr, quick"});
  AddConversion(comparison, "6 channels 44,100 to 48,000 Hz", {6, 6, 44100, 48000}, nullptr, {});
  AddConversion(comparison, "1 channel to 2, same rate", {1, 2, 44100, 44100}, Double, {});
  AddConversion(comparison, "2 channels to 1, same rate", {2, 1, 44100, 44100}, Halve,
                {0.6, 0.9, ""});
  AddConversion(comparison, "6 channels to 2, same rate", {6, 2, 44100, 44100}, FoldSix, {});
  AddLongQueue(comparison);
  AddMix(comparison, "mix of 2 without overflow", 2, 6000, {0.6, 0.9, ""});
  AddMix(comparison, "mix of 8 without overflow", 8, 6000, {0.85, 1.0, ""});
  // One sample in some 4,000 leaves the range: the gain is below 1 for most of a block.
  AddMix(comparison, "mix of 2 with overflowing peaks", 2, 9000, {0.15, 0.3, ""});
  AddMix(comparison, "mix of 8 with overflowing peaks", 8, 9000, {0.4, 0.6, ""});
  return comparison.Run();
}
