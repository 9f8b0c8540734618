#include "tools/zel/sound/ConvertedSound.h"

#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

constexpr std::int64_t kFarthestRates = 1000;

/// Whether the library's converter has a rule for these channels. It gives silence without one.
bool ConverterHas(int from, int to) {
  return from == to || (from >= 1 && from <= 8 && (to == 1 || to == 2 || to == 6));
}

bool RatesAreFarApart(std::int64_t a, std::int64_t b) {
  return a > b * kFarthestRates || b > a * kFarthestRates;
}

}  // namespace

void PrepareConversion(DecodedSound* sound, SoundFormat wanted) {
  const SoundFormat own = sound->format();
  if (RatesAreFarApart(own.sampleRate, wanted.sampleRate)) {
    throw Failure(sound->path, "its rate of " + std::to_string(own.sampleRate) +
                                   " Hz is too far from " + std::to_string(wanted.sampleRate));
  }
  if (ConverterHas(own.channels, wanted.channels)) return;
  if (sound->controls->SetOutputChannels(wanted.channels) != S_OK) {
    throw Failure(sound->path, "its sound of " + std::to_string(own.channels) +
                                   " channels cannot become " + std::to_string(wanted.channels));
  }
  sound->Refresh();
}

ConvertedSound::ConvertedSound(DecodedSound sound, SoundFormat wanted)
    : sound_(std::move(sound)),
      wanted_(wanted),
      stream_(MakeComponent<SteadyStream>(sound_.stream)) {
  PrepareConversion(&sound_, wanted);
  stream_->RegroupFor(wanted.sampleRate);
}

int ConvertedSound::Read(short* out, int samples) {
  while ((!converter_ || converter_->GetValidSize() < samples) && PutNext()) {
  }
  return converter_ ? converter_->Get(out, samples) : 0;
}

/// Converts the next block.
/// @return false at the end
bool ConvertedSound::PutNext() {
  stream_->Forward();
  CZelSample* sample = stream_->GetSampleEx();
  if (sample == nullptr) {
    sound_.CheckStatus();
    return false;
  }
  const auto& audio = sample->GetMediaFrame()->audio;
  if (!converter_) {
    converter_ = std::make_unique<CAudioConverter>(audio.nChannels, wanted_.channels,
                                                   audio.nSampleRate, wanted_.sampleRate, 1 << 16);
  } else if (audio.nChannels != converter_->GetInputChannels() ||
             audio.nSampleRate != converter_->GetInputSampleRate()) {
    throw Failure(sound_.path, "the format of its sound changes on the way");
  }
  converter_->Put(reinterpret_cast<const short*>(audio.pData), audio.nDataSize / 2);
  return true;
}

}  // namespace zel::tool
