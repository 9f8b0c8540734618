#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "tools/zel/sound/SteadyStream.h"

namespace zel::tool {
namespace {

using testing::ElementsAre;

using Values = std::vector<short>;

/// One frame of a decoded stream.
struct Piece {
  int rate;
  int channels;
  std::int64_t pts;  ///< 100-ns units.
  Values values;
};
using Pieces = std::vector<Piece>;

/// A decoded stream that gives its pieces. Seek(n) makes piece n the current one.
class PieceStream final : public Component<IMediaStream> {
 public:
  explicit PieceStream(Pieces pieces) : pieces_(std::move(pieces)) { sample_.FrameAttach(&frame_); }
  ~PieceStream() override { sample_.FrameAttach(nullptr); }

  HRESULT GetStreamInfo(IStreamInfo**) override { return E_FAIL; }
  CZelSample* GetSampleEx() override {
    if (at_ < 0 || at_ >= static_cast<int>(pieces_.size())) return nullptr;
    const Piece& piece = pieces_[static_cast<std::size_t>(at_)];
    copy_ = piece.values;  // A consumer may write into it.
    frame_.llPTS = piece.pts;
    const auto bytes = static_cast<std::int32_t>(copy_.size() * 2);
    auto* data = reinterpret_cast<unsigned char*>(copy_.data());
    frame_.audio = {piece.rate, piece.channels, 16, data, bytes, bytes};
    return &sample_;
  }
  int Forward() override {
    std::fill(copy_.begin(), copy_.end(), short{-1});  // What was lent out is gone.
    ++at_;
    return 0;
  }
  double Seek(double seconds, int) override { return at_ = static_cast<int>(seconds); }

 private:
  Pieces pieces_;
  Values copy_;
  MEDIA_FRAME frame_{};
  CZelSample sample_{AV_STREAM_AUDIO, FRAME_DATA_DECODED};
  int at_ = -1;
};

std::int64_t Ticks(std::int64_t sample, int rate) {
  return (sample * kTicksPerSecond + rate / 2) / rate;
}

/// Sound in pieces of `size` samples whose values count up.
Pieces Sound(int rate, int channels, std::int64_t samples, std::int64_t size,
             std::int64_t start = 0) {
  Pieces pieces;
  short next = 1;
  for (std::int64_t at = 0; at < samples; at += size) {
    Piece piece{rate, channels, start + Ticks(at, rate), {}};
    piece.values.resize(static_cast<std::size_t>(std::min(size, samples - at) * channels));
    for (short& value : piece.values) value = next = static_cast<short>(next % 30000 + 1);
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

Values Joined(const Pieces& pieces) {
  Values all;
  for (const Piece& piece : pieces) {
    all.insert(all.end(), piece.values.begin(), piece.values.end());
  }
  return all;
}

/// What a SteadyStream gave.
struct Given {
  std::int64_t start = -1;  ///< The first frame's time stamp.
  Values values;
  std::vector<std::int64_t> lengths;  ///< Samples of each frame.
};

/// Pulls everything that follows. Frames of the first rate must continue each other to the sample.
Given Pull(const Ref<SteadyStream>& stream, bool forward = true) {
  Given given;
  std::int64_t at = 0;
  for (int rate = 0;; forward = true) {
    if (forward) stream->Forward();
    CZelSample* sample = stream->GetSampleEx();
    if (sample == nullptr) return given;
    const MEDIA_FRAME& frame = *sample->GetMediaFrame();
    if (given.lengths.empty()) {
      given.start = frame.llPTS;
      rate = frame.audio.nSampleRate;
    }
    EXPECT_TRUE(frame.llPTS == given.start + Ticks(at, rate) || rate != frame.audio.nSampleRate);
    const auto* values = reinterpret_cast<const short*>(frame.audio.pData);
    const int count = frame.audio.nDataSize / 2;
    given.values.insert(given.values.end(), values, values + count);
    at += given.lengths.emplace_back(count / frame.audio.nChannels);
  }
}

Ref<SteadyStream> Steady(const Pieces& sound, int regroupFor = 0) {
  const auto inner = MakeComponent<PieceStream>(sound);
  auto stream = MakeComponent<SteadyStream>(Ref<IMediaStream>::Share(inner.get()));
  stream->RegroupFor(regroupFor);
  return stream;
}

TEST(SteadyStream, RegroupsToWholeNumbersOfConvertedSamples) {
  constexpr std::pair<int, int> rates[] = {
      {44100, 48000}, {48000, 44100}, {22050, 44100}, {44100, 22050},    {22050, 48000},
      {96000, 44100}, {8000, 11025},  {44100, 48001}, {192'000, 44'101},
  };
  for (const auto& [from, to] : rates) {
    for (const std::int64_t size : {1LL, 1152LL, 100'000LL}) {
      SCOPED_TRACE(testing::Message() << from << " to " << to << ", pieces of " << size);
      const Pieces sound = Sound(from, 2, 52'345, size);
      auto [start, values, lengths] = Pull(Steady(sound, to));
      EXPECT_EQ(values, Joined(sound));
      lengths.pop_back();
      std::int64_t end = 0;  // What frames miss a sample's end by does not add up.
      for (const std::int64_t length : lengths) {
        EXPECT_TRUE(length >= 1024 && length <= 5120) << length;
        end += length;
        EXPECT_NEAR(std::remainder(static_cast<double>(end) * to / from, 1.0), 0, 1.0 / 1500);
      }
    }
  }
}

TEST(SteadyStream, FillsHolesAndDropsWhatOverlaps) {
  Pieces sound = Sound(8000, 1, 6000, 1000, 77);
  for (std::size_t i = 3; i < sound.size(); ++i) sound[i].pts += Ticks(5000, 8000);  // A hole,
  sound[5].pts -= Ticks(250, 8000);                                                  // 250 twice,
  sound.insert(sound.begin() + 2, sound[1]);                     // a frame twice,
  sound.insert(sound.begin() + 4, {8000, 1, sound[4].pts, {}});  // and one with nothing in it.
  Values wanted = Joined(Sound(8000, 1, 6000, 1000));
  wanted.erase(wanted.begin() + 5000, wanted.begin() + 5250);
  wanted.insert(wanted.begin() + 3000, 5000, 0);
  for (const int to : {8000, 11025, 44100}) {
    const Given given = Pull(Steady(sound, to));
    EXPECT_EQ(given.start, 77);
    EXPECT_EQ(given.values, wanted);
  }

  sound = Sound(8000, 1, 3000, 1000);  // The clock jumps.
  for (std::size_t i = 1; i < 3; ++i) sound[i].pts += 700 * kTicksPerSecond;
  EXPECT_THAT(Pull(Steady(sound, 8000)).lengths, ElementsAre(1000, 1000, 1000));
}

TEST(SteadyStream, EndsAGroupWhereTheFormatChanges) {
  Pieces sound = Sound(22050, 2, 3000, 500);
  const Pieces others[] = {Sound(22050, 1, 2000, 700, sound.back().pts + kTicksPerSecond / 4),
                           Sound(44100, 1, 5000, 900), Sound(32000, 1, 3000, 900)};
  for (const auto& other : others) sound.insert(sound.end(), other.begin(), other.end());
  // Before the second format's 2,000 samples come 5,013 of silence: a quarter of a second less the
  // last 500 of the first format's.
  EXPECT_THAT(Pull(Steady(sound, 44100)).lengths,
              ElementsAre(1024, 1024, 952,                          // In 2 channels,
                          1024, 1024, 1024, 1024, 1024, 1024, 869,  // in one,
                          900, 900, 900, 900, 900, 500,             // at the rate wanted,
                          1280, 1280, 440));                        // and at the last rate.
}

TEST(SteadyStream, StartsAnewAfterASeek) {
  const Pieces sound = Sound(22050, 1, 4000, 1000);
  const auto stream = Steady(sound, 48000);
  Pull(stream);  // To the end, and beyond.
  EXPECT_EQ(stream->Seek(2, 1), 2);
  const Given given = Pull(stream, false);
  EXPECT_EQ(given.values, Joined({sound[2], sound[3]}));
  EXPECT_EQ(given.start, sound[2].pts);
  EXPECT_THAT(given.lengths, ElementsAre(1029, 971));
  stream->Seek(0, 1);
  stream->Forward();
  stream->Seek(1, 1);  // In the middle of a group.
  EXPECT_EQ(Pull(stream, false).values, Joined({sound[1], sound[2], sound[3]}));
  stream->Seek(4, 1);
  EXPECT_EQ(stream->GetSampleEx(), nullptr);
}

}  // namespace
}  // namespace zel::tool
