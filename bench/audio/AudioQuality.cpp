// How good CAudioConverter's linear interpolation is: the gain and the signal-to-noise ratio of
// sines, what is left of those that the output rate cannot carry, and what the block size does.
//
//   audio_quality            three tables in Markdown
#include <cmath>
#include <cstdio>
#include <vector>

#include "zel/audio/AudioConverter.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kAmplitude = 16384;  // Half of full scale, -6 dB.

struct Quality {
  double gain;   // The sine that comes out against the one that went in, in dB.
  double ratio;  // The sine that comes out against everything else that does, in dB.
  double rest;   // Everything else against the sine that went in, in dB.
};

// A second and a half of a sine through a converter in blocks; what comes out after the first tenth
// of a second, fitted to a sine of the same frequency (and any phase and level), and the rest.
Quality Measure(int inRate, int outRate, double frequency, int block) {
  CAudioConverter converter(1, 1, inRate, outRate, 0);
  std::vector<short> in(static_cast<std::size_t>(block)), out;
  const int blocks = inRate * 3 / 2 / block;
  for (int b = 0; b < blocks; ++b) {
    for (int i = 0; i < block; ++i) {
      const double time = (static_cast<double>(b) * block + i) / inRate;
      in[static_cast<std::size_t>(i)] =
          static_cast<short>(std::lround(kAmplitude * std::sin(2 * kPi * frequency * time)));
    }
    converter.Put(in.data(), block);
    const std::size_t old = out.size();
    out.resize(old + static_cast<std::size_t>(converter.GetValidSize()));
    converter.Get(out.data() + old, converter.GetValidSize());
  }
  const auto first = static_cast<std::size_t>(outRate / 10);
  // Least squares over the sine and cosine of that frequency.
  double ss = 0, cc = 0, sc = 0, sx = 0, cx = 0, xx = 0;
  for (std::size_t i = first; i < out.size(); ++i) {
    const double at = 2 * kPi * frequency * static_cast<double>(i) / outRate;
    const double s = std::sin(at), c = std::cos(at), x = out[i];
    ss += s * s, cc += c * c, sc += s * c, sx += s * x, cx += c * x, xx += x * x;
  }
  const auto n = static_cast<double>(out.size() - first);
  const bool carried = frequency < outRate / 2.0;
  const double det = ss * cc - sc * sc;
  const double a = carried ? (sx * cc - cx * sc) / det : 0,
               b = carried ? (cx * ss - sx * sc) / det : 0;
  const double power = kAmplitude * kAmplitude / 2;
  const double sine = (a * a + b * b) / 2;
  const double rest = (xx - a * sx - b * cx) / n;
  return {10 * std::log10(sine / power), 10 * std::log10(sine / rest),
          10 * std::log10(rest / power)};
}

struct Rates {
  int in, out;
};

// Without the sign of a zero.
double Tidy(double value) {
  return std::fabs(value) < 0.005 ? 0 : value;
}

// The shortest block, of at least 1,000 frames, that makes a whole number of frames.
int WholeBlock(const Rates& r) {
  int a = r.in, b = r.out;
  while (b != 0) {
    const int rest = a % b;
    a = b;
    b = rest;
  }
  const int unit = r.in / a;
  return (1000 + unit - 1) / unit * unit;
}

}  // namespace

int main() {
  constexpr Rates kRates[] = {{22050, 44100}, {44100, 48000}, {48000, 44100}, {44100, 22050}};
  constexpr double kFrequencies[] = {100, 440, 1000, 3000, 6000, 10000};

  std::printf(
      "Gain and signal-to-noise ratio of a sine at -6 dBFS, in dB, whole-numbered blocks:\n\n");
  std::printf("| Hz |");
  for (const Rates& r : kRates) std::printf(" %d to %d |", r.in, r.out);
  std::printf("\n|---|---|---|---|---|\n");
  for (double f : kFrequencies) {
    std::printf("| %.0f |", f);
    for (const Rates& r : kRates) {
      const Quality q = Measure(r.in, r.out, f, WholeBlock(r));
      std::printf(" %.2f / %.1f |", Tidy(q.gain), q.ratio);
    }
    std::printf("\n");
  }

  std::printf(
      "\nLevel of the alias of a sine above half the output rate, in dB against the sine:\n\n");
  std::printf("| Hz | rates | alias at | level |\n|---|---|---|---|\n");
  struct Alias {
    Rates rates;
    double frequency;
  };
  for (const Alias& a : {Alias{{48000, 44100}, 22500},
                         {{48000, 44100}, 23500},
                         {{44100, 22050}, 12000},
                         {{44100, 22050}, 15000},
                         {{44100, 22050}, 20000},
                         {{48000, 8000}, 5000},
                         {{48000, 8000}, 9000}}) {
    const double alias =
        std::fabs(a.frequency - a.rates.out * std::round(a.frequency / a.rates.out));
    std::printf("| %.0f | %d to %d | %.0f | %.1f |\n", a.frequency, a.rates.in, a.rates.out, alias,
                Tidy(Measure(a.rates.in, a.rates.out, a.frequency, WholeBlock(a.rates)).rest));
  }

  std::printf("\nSignal-to-noise ratio of a 1,000 Hz sine by block size, in dB:\n\n");
  std::printf("| Frames per block | 44100 to 48000 | 48000 to 44100 |\n|---|---|---|\n");
  for (int block : {147, 160, 441, 480, 1000, 1024, 1152, 4096, 4410, 4800}) {
    std::printf("| %d | %.1f | %.1f |\n", block, Measure(44100, 48000, 1000, block).ratio,
                Measure(48000, 44100, 1000, block).ratio);
  }
}
