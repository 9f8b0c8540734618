#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>

#include "tools/zel/sound/SteadyStream.h"

namespace zel::tool {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr std::int64_t kTicks = 10'000'000;

/// One frame of a decoded stream, or of what a stream gave.
struct Piece {
  int rate;
  int channels;
  std::int64_t pts;  ///< 100-ns units.
  std::vector<short> values;

  std::int64_t samples() const { return static_cast<std::int64_t>(values.size()) / channels; }
};

/// A decoded stream that gives its pieces. Seek(n) makes piece n the current one.
class PieceStream final : public IMediaStream {
 public:
  explicit PieceStream(std::vector<Piece> pieces)
      : pieces_(std::move(pieces)), sample_(AV_STREAM_AUDIO, FRAME_DATA_DECODED) {
    sample_.FrameAttach(&frame_);
  }
  ~PieceStream() { sample_.FrameAttach(nullptr); }

  HRESULT QueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return 2; }
  ULONG Release() override { return 1; }
  HRESULT GetStreamInfo(IStreamInfo**) override { return E_FAIL; }
  HRESULT ChangeStream(int) override { return E_FAIL; }
  CZelSample* GetSampleEx() override {
    if (at_ < 0 || at_ >= static_cast<int>(pieces_.size())) return nullptr;
    Piece& piece = pieces_[static_cast<std::size_t>(at_)];
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
  int Backward() override { return 0; }
  double Seek(double seconds, int) override {
    at_ = static_cast<int>(seconds);
    return seconds;
  }
  HRESULT NotifyStreamMessage(unsigned long, long long, void*, void*) override { return S_OK; }
  CZelSample* GetOriginSampleEx() override { return nullptr; }

 private:
  std::vector<Piece> pieces_;
  std::vector<short> copy_;
  MEDIA_FRAME frame_{};
  CZelSample sample_;
  int at_ = -1;
};

std::int64_t Ticks(std::int64_t sample, int rate) {
  return (sample * kTicks + rate / 2) / rate;
}

/// Sound in pieces of `size` samples whose values count up.
std::vector<Piece> Sound(int rate, int channels, std::int64_t samples, std::int64_t size,
                         std::int64_t start = 0) {
  std::vector<Piece> pieces;
  short next = 1;
  for (std::int64_t at = 0; at < samples; at += size) {
    Piece piece{rate, channels, start + Ticks(at, rate), {}};
    piece.values.resize(static_cast<std::size_t>(std::min(size, samples - at) * channels));
    for (short& value : piece.values) value = next = static_cast<short>(next % 30000 + 1);
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

/// Pulls everything that follows.
std::vector<Piece> Pull(SteadyStream* stream, bool forward = true) {
  std::vector<Piece> given;
  for (;; forward = true) {
    if (forward) stream->Forward();
    CZelSample* sample = stream->GetSampleEx();
    if (sample == nullptr) return given;
    const MEDIA_FRAME& frame = *sample->GetMediaFrame();
    Piece piece{frame.audio.nSampleRate, frame.audio.nChannels, frame.llPTS, {}};
    piece.values.resize(static_cast<std::size_t>(frame.audio.nDataSize) / 2);
    std::memcpy(piece.values.data(), frame.audio.pData, piece.values.size() * 2);
    given.push_back(std::move(piece));
  }
}

std::vector<short> Joined(const std::vector<Piece>& pieces) {
  std::vector<short> all;
  for (const Piece& piece : pieces) {
    all.insert(all.end(), piece.values.begin(), piece.values.end());
  }
  return all;
}

std::vector<std::int64_t> Lengths(const std::vector<Piece>& pieces) {
  std::vector<std::int64_t> lengths;
  for (const Piece& piece : pieces) lengths.push_back(piece.samples());
  return lengths;
}

/// Pieces that continue each other to the sample.
void ExpectSteady(const std::vector<Piece>& pieces) {
  std::int64_t at = 0;
  for (const Piece& piece : pieces) {
    EXPECT_EQ(piece.pts, pieces[0].pts + Ticks(at, piece.rate));
    at += piece.samples();
  }
}

ComPtr<SteadyStream> Steady(PieceStream* inner) {
  return ComPtr<SteadyStream>(new SteadyStream(ComPtr<IMediaStream>(inner)));
}

TEST(SteadyStream, RegroupsToWholeNumbersOfConvertedSamples) {
  const struct {
    int from, to;
    std::int64_t length;  ///< Of every frame but the last.
  } cases[] = {
      {44100, 48000, 1029}, {48000, 44100, 1120}, {22050, 44100, 1024}, {44100, 22050, 1024},
      {22050, 48000, 1029}, {96000, 44100, 1280}, {8000, 11025, 1280},  {11025, 8000, 1323},
  };
  for (const auto& c : cases) {
    for (const std::int64_t size : {1LL, 1024LL, 1152LL, 4608LL, 100'000LL}) {
      SCOPED_TRACE(testing::Message() << c.from << " to " << c.to << ", pieces of " << size);
      const std::vector<Piece> sound = Sound(c.from, 2, 12'345, size);
      PieceStream inner(sound);
      const ComPtr<SteadyStream> stream = Steady(&inner);
      stream->RegroupFor(c.to);
      const std::vector<Piece> given = Pull(stream.get());
      EXPECT_EQ(Joined(given), Joined(sound));
      ExpectSteady(given);
      std::vector<std::int64_t> lengths = Lengths(given);
      EXPECT_EQ(lengths.back(), 12'345 % c.length);
      lengths.pop_back();
      EXPECT_THAT(lengths, Each(c.length));
    }
  }
}

// 44,100 samples to 48,001 would be a second; frames end near a whole number of samples instead,
// and what they miss it by does not add up.
TEST(SteadyStream, RegroupsOddRatesAsWellAsShortFramesCan) {
  for (const auto& [from, to] :
       {std::pair(44100, 48001), std::pair(47999, 44100), std::pair(192'000, 44'101)}) {
    SCOPED_TRACE(testing::Message() << from << " to " << to);
    PieceStream inner(Sound(from, 1, 400'000, 1024));
    const ComPtr<SteadyStream> stream = Steady(&inner);
    stream->RegroupFor(to);
    std::vector<std::int64_t> lengths = Lengths(Pull(stream.get()));
    lengths.pop_back();
    std::int64_t end = 0;
    for (const std::int64_t length : lengths) {
      EXPECT_GE(length, 1024);
      EXPECT_LE(length, 5120);
      end += length;
      EXPECT_NEAR(std::remainder(static_cast<double>(end) * to / from, 1.0), 0, 1.0 / 1500);
    }
  }
}

TEST(SteadyStream, LeavesFramesAloneAtEqualRates) {
  const std::vector<Piece> sound = Sound(44100, 2, 10'000, 1152);
  PieceStream inner(sound);
  const ComPtr<SteadyStream> stream = Steady(&inner);
  stream->RegroupFor(44100);
  for (const Piece& piece : sound) {
    stream->Forward();
    const unsigned char* theirs = inner.GetSampleEx()->GetMediaFrame()->audio.pData;
    const MEDIA_FRAME& ours = *stream->GetSampleEx()->GetMediaFrame();
    EXPECT_EQ(ours.audio.pData, theirs);
    EXPECT_EQ(ours.audio.nDataSize, static_cast<int>(piece.values.size() * 2));
  }
}

TEST(SteadyStream, FillsHolesAndDropsWhatOverlaps) {
  std::vector<Piece> sound = Sound(8000, 1, 6000, 1000, 77);
  for (std::size_t i = 3; i < sound.size(); ++i) sound[i].pts += Ticks(5000, 8000);  // A hole,
  sound[5].pts -= Ticks(250, 8000);                                                  // 250 twice,
  sound.insert(sound.begin() + 2, sound[1]);                     // a frame twice,
  sound.insert(sound.begin() + 4, {8000, 1, sound[4].pts, {}});  // and one with nothing in it.
  std::vector<short> wanted = Joined(Sound(8000, 1, 6000, 1000));
  wanted.erase(wanted.begin() + 5000, wanted.begin() + 5250);
  wanted.insert(wanted.begin() + 3000, 5000, 0);
  for (const int to : {8000, 11025, 44100}) {
    PieceStream inner(sound);
    const ComPtr<SteadyStream> stream = Steady(&inner);
    stream->RegroupFor(to);
    const std::vector<Piece> given = Pull(stream.get());
    EXPECT_EQ(Joined(given), wanted) << to;
    EXPECT_EQ(given[0].pts, 77);
    ExpectSteady(given);
  }
}

TEST(SteadyStream, GoesOnWhenTheClockJumps) {
  std::vector<Piece> sound = Sound(8000, 1, 3000, 1000);
  sound[1].pts += 700 * kTicks;
  sound[2].pts += 700 * kTicks;
  PieceStream inner(sound);
  const ComPtr<SteadyStream> stream = Steady(&inner);
  EXPECT_THAT(Lengths(Pull(stream.get())), ElementsAre(1000, 1000, 1000));
}

TEST(SteadyStream, SplitsAtTheFirstSampleThatIsNotBefore) {
  const struct {
    double seconds;
    std::vector<std::int64_t> lengths;
  } cases[] = {
      {0, {1000, 1000}},
      {-1, {1000, 1000}},
      {0.125, {1000, 1000}},
      {0.0625, {500, 500, 1000}},
      {0.06250001, {501, 499, 1000}},  // The stamp of sample 500 lies before this.
      {0.249875, {1000, 999, 1}},
      {0.25, {1000, 1000}},
      {99, {1000, 1000}},
  };
  for (const auto& c : cases) {
    PieceStream inner(Sound(8000, 2, 2000, 1000));
    const ComPtr<SteadyStream> stream = Steady(&inner);
    stream->SplitAt(c.seconds);
    const std::vector<Piece> given = Pull(stream.get());
    EXPECT_EQ(Lengths(given), c.lengths) << c.seconds;
    EXPECT_EQ(Joined(given), Joined(Sound(8000, 2, 2000, 1000)));
    ExpectSteady(given);
  }
}

TEST(SteadyStream, PadsForTheLongestFrameOfTheInputOnce) {
  PieceStream theirs(Sound(48000, 2, 4800, 4000));
  const ComPtr<SteadyStream> input = Steady(&theirs);
  Pull(input.get());
  EXPECT_DOUBLE_EQ(input->LongestFrame(), 4000 / 48000.0);
  PieceStream inner(Sound(12000, 1, 1500, 600));
  const ComPtr<SteadyStream> stream = Steady(&inner);
  stream->RegroupFor(48000);
  stream->PadFor(input.get());
  const std::vector<Piece> given = Pull(stream.get());
  EXPECT_THAT(Lengths(given), ElementsAre(1024, 476, 1000 + 64));
  EXPECT_THAT(given[2].values, Each(0));
  ExpectSteady(given);
  stream->Forward();
  EXPECT_EQ(stream->GetSampleEx(), nullptr);
}

TEST(SteadyStream, EndsAGroupWhereTheFormatChanges) {
  std::vector<Piece> sound = Sound(22050, 2, 3000, 500);
  const std::vector<Piece> other[] = {Sound(22050, 1, 2000, 700, sound.back().pts + kTicks / 4),
                                      Sound(44100, 1, 5000, 900), Sound(32000, 1, 3000, 900)};
  for (const auto& pieces : other) sound.insert(sound.end(), pieces.begin(), pieces.end());
  PieceStream inner(sound);
  const ComPtr<SteadyStream> stream = Steady(&inner);
  stream->RegroupFor(44100);
  const std::vector<Piece> given = Pull(stream.get());
  std::vector<std::string> shapes;
  for (const Piece& piece : given) {
    shapes.push_back(std::to_string(piece.rate) + "/" + std::to_string(piece.channels) + "/" +
                     std::to_string(piece.samples()));
  }
  // Before the second format's 2,000 samples come 5,013 of silence: a quarter of a second less the
  // last 500 of the first format's.
  const std::vector<std::string> wanted = {
      "22050/2/1024", "22050/2/1024", "22050/2/952",  "22050/1/1024", "22050/1/1024",
      "22050/1/1024", "22050/1/1024", "22050/1/1024", "22050/1/1024", "22050/1/869",
      "44100/1/900",  "44100/1/900",  "44100/1/900",  "44100/1/900",  "44100/1/900",
      "44100/1/500",  "32000/1/1280", "32000/1/1280", "32000/1/440"};
  EXPECT_EQ(shapes, wanted);
}

TEST(SteadyStream, StartsAnewAfterASeek) {
  const std::vector<Piece> sound = Sound(22050, 1, 4000, 1000);
  PieceStream inner(sound);
  const ComPtr<SteadyStream> stream = Steady(&inner);
  stream->RegroupFor(48000);
  Pull(stream.get());  // To the end, and beyond.
  EXPECT_EQ(stream->Seek(2, 1), 2);
  std::vector<Piece> given = Pull(stream.get(), false);
  EXPECT_EQ(Joined(given), Joined({sound[2], sound[3]}));
  EXPECT_EQ(given[0].pts, sound[2].pts);
  EXPECT_THAT(Lengths(given), ElementsAre(1029, 971));
  stream->Seek(0, 1);
  stream->Forward();
  stream->Seek(1, 1);  // In the middle of a group.
  EXPECT_EQ(Joined(Pull(stream.get(), false)), Joined({sound[1], sound[2], sound[3]}));
  stream->Seek(4, 1);
  EXPECT_EQ(stream->GetSampleEx(), nullptr);
}

}  // namespace
}  // namespace zel::tool
