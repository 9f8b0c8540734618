// Decoded sound without holes: what the command hands to the compositor.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "zel/base/Component.h"
#include "zel/base/Ref.h"
#include "zel/compositor/MediaStream.h"
#include "zel/sample/Sample.h"

namespace zel::tool {

/// Sound whose frames follow each other without a gap.
///
/// The compositor places its second source by counting bytes, and encoders count samples. So silent
/// frames fill the holes between the frames of a decoded stream, and samples that come twice are
/// dropped. Time stamps then count samples. On request:
///
/// - SplitAt, for an input, divides the frame that contains the delay. The compositor silences
///   whole frames, so its second source would start at the next frame otherwise.
/// - RegroupFor, for a source of a conversion, gives frames lengths that convert to whole numbers
///   of samples. The converter spreads the samples that a frame yields evenly over it. Frames of
///   other lengths would each be stretched in their own way, which is heard as noise.
/// - PadFor, for a track, puts silence after the end. The compositor leaves the frame silent in
///   which its source ends, and the last samples of the track would be lost in it.
class SteadyStream final : public Component<IMediaStream> {
 public:
  explicit SteadyStream(Ref<IMediaStream> inner);
  ~SteadyStream() override;
  SteadyStream(const SteadyStream&) = delete;
  SteadyStream& operator=(const SteadyStream&) = delete;

  /// Makes a frame start with the first sample whose time is `seconds` or later.
  void SplitAt(double seconds) { split_ = seconds; }
  /// Makes every frame but the last end where a sample of a conversion to `rate` (samples per
  /// second) ends: after a multiple of own rate / gcd(own rate, rate) samples since the start.
  /// Where such points are too rare, frames end as close to one as possible. Frames then have 1,024
  /// to 5,120 samples. Has no effect at equal rates, or after SplitAt.
  void RegroupFor(int rate) { groupFor_ = rate; }
  /// Adds, after the end, a block of silence that covers the longest frame of `input`.
  /// @param input not referenced: must live for as long as this stream is pulled.
  void PadFor(const SteadyStream* input) { padFor_ = input; }

  /// How much of what was given since the last seek fills holes, in seconds.
  double holes() const { return holes_; }
  /// The longest frame so far, in seconds.
  double longestFrame() const { return longest_; }

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  HRESULT ChangeStream(int index) override;
  CZelSample* GetSampleEx() override;
  int Forward() override;
  double Seek(double seconds, int mode) override;
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override;
  CZelSample* GetOriginSampleEx() override;

 private:
  void Next();
  void LoadBlock(bool sameFormat);
  bool Align();
  void Cut();
  void Group();
  std::int64_t GroupLength() const;
  void Pad();
  void Show(unsigned char* data, std::int64_t count);
  std::int64_t TimeOf(std::int64_t sample) const;
  std::int64_t SamplesBeforeSplit(std::int64_t count) const;

  Ref<IMediaStream> inner_;
  std::optional<double> split_;
  int groupFor_ = 0;
  const SteadyStream* padFor_ = nullptr;

  CZelSample sample_;      ///< What this stream gives; its frame is window_.
  MEDIA_FRAME window_{};   ///< Borrows its data.
  bool current_ = false;   ///< window_ shows a sample.
  MEDIA_FRAME block_{};    ///< The inner frame, or what is left of it. Gives the format, too.
  std::int64_t left_ = 0;  ///< Samples left in block_.
  std::int64_t hole_ = 0;  ///< Silent samples due before them.
  std::vector<unsigned char> quiet_;  ///< Data of silent frames.
  std::vector<unsigned char> group_;  ///< Data of frames made of several.
  bool waiting_ = false;              ///< The inner stream's current frame is still to be loaded.
  bool drained_ = false;              ///< The inner stream has ended.
  bool ended_ = false;                ///< This one, too.
  double longest_ = 0;
  double holes_ = 0;

  bool timed_ = false;          ///< base_ is known.
  std::int64_t base_ = 0;       ///< Time of sample 0, 100-ns units.
  std::int64_t position_ = 0;   ///< Samples given since then.
  std::int64_t converted_ = 0;  ///< Samples given in this format since the last seek.
  std::int64_t skew_ = 0;       ///< How far the inner stream's clock has jumped, 100-ns units.
};

}  // namespace zel::tool
