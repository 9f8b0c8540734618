// The streams that the command hands to the compositor: decoded sound without holes.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/zel/files/Host.h"
#include "zel/sample/Sample.h"

namespace zel::tool {

/// Sound whose frames follow each other without a gap.
///
/// The compositor places its second source by counting bytes, and its input's frames are encoded
/// one after the other. So holes between the frames of a decoded stream are filled with silent
/// frames, and what overlaps is dropped. Time stamps then count samples. Services on top:
///
/// - As an input (SplitAt), a frame that contains the delay is given as two. The compositor
///   silences frames as a whole, so the second source would else start at the next frame.
/// - As a source of a conversion (RegroupFor), frames get lengths that convert to whole numbers of
///   samples. The converter spreads what a frame yields evenly over it, so that other lengths
///   would be stretched a little, each in its own way, which is heard as noise.
/// - As a track (PadFor), the end is followed by silence. The compositor leaves a frame silent in
///   which its source ends, and would keep the sound that it still holds.
class SteadyStream final : public IMediaStream {
 public:
  /// Count 1, for the caller.
  explicit SteadyStream(ComPtr<IMediaStream> inner);
  SteadyStream(const SteadyStream&) = delete;
  SteadyStream& operator=(const SteadyStream&) = delete;

  /// Lets a frame start with the first sample whose time is `seconds` or later.
  void SplitAt(double seconds) { split_ = seconds; }
  /// Lets every frame but the last end where a whole number of samples of a conversion to `rate`
  /// (samples per second) ends: after a multiple of own rate / gcd(own rate, rate) samples since
  /// the start, or where that would take too long, as close to such a point as can be found.
  /// Frames have 1,024 to 5,120 samples then. Without effect at equal rates, and on a stream that
  /// splits.
  void RegroupFor(int rate) { groupFor_ = rate; }
  /// Lets the end be followed by a block of silence that covers the longest frame of `input` (which
  /// must outlive the pulling of this stream).
  void PadFor(const SteadyStream* input) { padFor_ = input; }

  /// Seconds of the longest frame so far.
  double LongestFrame() const { return longest_; }

  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  HRESULT ChangeStream(int index) override;
  CZelSample* GetSampleEx() override;
  int Forward() override;
  int Backward() override;
  double Seek(double seconds, int mode) override;
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override;
  CZelSample* GetOriginSampleEx() override;

 private:
  ~SteadyStream();

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

  std::atomic<ULONG> references_ = 1;
  ComPtr<IMediaStream> inner_;
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

  bool timed_ = false;          ///< base_ is known.
  std::int64_t base_ = 0;       ///< Time of sample 0, 100-ns units.
  std::int64_t position_ = 0;   ///< Samples given since then.
  std::int64_t converted_ = 0;  ///< Samples given in this format since the last seek.
  std::int64_t skew_ = 0;       ///< How far the inner stream's clock has jumped, 100-ns units.
};

}  // namespace zel::tool
