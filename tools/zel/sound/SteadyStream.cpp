#include "tools/zel/sound/SteadyStream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "kernaldec/DecodedAudio.h"
#include "zel/platform/Types.h"

namespace zel::tool {
namespace {

/// Samples of a regrouped frame: the fewest, and how many more to try for a good end. Of 4,096
/// neighbours, one converts to a whole number of samples but for about 1/4,096.
constexpr std::int64_t kShortestGroup = 1024;
constexpr std::int64_t kGroupChoice = 4096;

int BytesPerSample(const MEDIA_FRAME& frame) {
  return frame.audio.nChannels * 2;
}

}  // namespace

SteadyStream::SteadyStream(Ref<IMediaStream> inner)
    : inner_(std::move(inner)), sample_(AV_STREAM_AUDIO, FRAME_DATA_DECODED) {
  sample_.FrameAttach(&window_);
}

SteadyStream::~SteadyStream() {
  sample_.FrameAttach(nullptr);
}

int SteadyStream::Forward() {
  Next();
  return 0;
}

double SteadyStream::Seek(double seconds, int mode) {
  const double reached = inner_->Seek(seconds, mode);
  timed_ = false;
  skew_ = 0;
  left_ = hole_ = 0;
  holes_ = 0;
  converted_ = 0;
  drained_ = ended_ = false;
  waiting_ = true;
  Next();
  return reached;
}

CZelSample* SteadyStream::GetSampleEx() {
  return current_ ? &sample_ : nullptr;
}

void SteadyStream::Next() {
  current_ = false;
  if (ended_) return;
  if (left_ == 0) LoadBlock(false);
  if (left_ == 0) {
    ended_ = true;
    Pad();
  } else if (groupFor_ != 0 && groupFor_ != block_.audio.nSampleRate && !split_) {
    Group();
  } else {
    Cut();
  }
}

/// Makes the inner stream's next frame with new samples the block. `left_` stays 0 at the stream's
/// end and, with `sameFormat`, before a frame of another format.
void SteadyStream::LoadBlock(bool sameFormat) {
  while (!drained_) {
    if (!waiting_) inner_->Forward();
    waiting_ = true;
    CZelSample* sample = inner_->GetSampleEx();
    const MEDIA_FRAME* frame = sample != nullptr ? sample->GetMediaFrame() : nullptr;
    if (frame == nullptr || frame->audio.nChannels <= 0 || frame->audio.nSampleRate <= 0) {
      drained_ = true;
      return;
    }
    const bool sameRate = frame->audio.nSampleRate == block_.audio.nSampleRate;
    const bool same = sameRate && frame->audio.nChannels == block_.audio.nChannels;
    if (sameFormat && !same) return;
    waiting_ = false;
    if (!sameRate) timed_ = false;
    if (!same) converted_ = 0;  // The converter starts anew, too.
    block_ = *frame;
    left_ = block_.audio.nDataSize / BytesPerSample(block_);
    if (left_ > 0 && Align()) return;
  }
}

/// Compares the block's time with the end of what was given before: sets the hole before it, and
/// drops samples that were given already.
/// @return false when no samples are left
bool SteadyStream::Align() {
  if (!timed_) {
    timed_ = true;
    base_ = block_.llPTS;
    position_ = 0;
    skew_ = 0;
    return true;
  }
  std::int64_t late = block_.llPTS - skew_ - TimeOf(position_);
  if (std::abs(late) > kLongestHole) {
    skew_ += late;
    late = 0;
  }
  const std::int64_t samples =
      std::llround(static_cast<double>(late) * block_.audio.nSampleRate / kTicksPerSecond);
  hole_ = std::max<std::int64_t>(samples, 0);
  const std::int64_t old = std::min(std::max<std::int64_t>(-samples, 0), left_);
  block_.audio.pData += old * BytesPerSample(block_);
  left_ -= old;
  return left_ > 0;
}

/// Shows the next samples of the hole or of the block.
void SteadyStream::Cut() {
  const bool quiet = hole_ > 0;
  std::int64_t count = quiet ? std::min<std::int64_t>(hole_, 4096) : left_;
  count = SamplesBeforeSplit(count);
  const auto bytes = static_cast<std::size_t>(count * BytesPerSample(block_));
  if (quiet) {
    quiet_.assign(bytes, 0);  // The consumer may have written into it.
    hole_ -= count;
    holes_ += static_cast<double>(count) / block_.audio.nSampleRate;
    Show(quiet_.data(), count);
    return;
  }
  unsigned char* data = block_.audio.pData;
  block_.audio.pData += bytes;
  left_ -= count;
  Show(data, count);
}

/// Shows samples of the hole, the block and the ones after it as one frame.
void SteadyStream::Group() {
  const std::int64_t length = GroupLength();
  if (hole_ == 0 && left_ >= length) {
    unsigned char* data = block_.audio.pData;
    block_.audio.pData += length * BytesPerSample(block_);
    left_ -= length;
    Show(data, length);
    return;
  }
  const int size = BytesPerSample(block_);
  group_.clear();
  std::int64_t missing = length;
  while (missing > 0 && left_ > 0) {
    const std::int64_t quiet = std::min(hole_, missing);
    group_.resize(group_.size() + static_cast<std::size_t>(quiet * size));
    hole_ -= quiet;
    holes_ += static_cast<double>(quiet) / block_.audio.nSampleRate;
    missing -= quiet;
    const std::int64_t loud = std::min(left_, missing);
    unsigned char* data = block_.audio.pData;
    group_.insert(group_.end(), data, data + loud * size);
    block_.audio.pData += loud * size;
    left_ -= loud;
    missing -= loud;
    position_ += quiet + loud;  // Where the next block has to continue.
    if (left_ == 0 && missing > 0) LoadBlock(true);
  }
  position_ -= length - missing;
  Show(group_.data(), length - missing);
}

/// The number of samples of the next regrouped frame.
std::int64_t SteadyStream::GroupLength() const {
  const std::int64_t rate = block_.audio.nSampleRate;
  const std::int64_t step = groupFor_ % rate;
  // How far the frame's end lies behind a whole number of converted samples, in 1 / rate of one.
  std::int64_t over = (converted_ + kShortestGroup) % rate * step % rate;
  std::int64_t best = 0;
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  for (std::int64_t more = 0; more <= kGroupChoice && least > 0; ++more) {
    const std::int64_t distance = std::min(over, rate - over);
    if (distance < least) {
      least = distance;
      best = more;
    }
    over += step;
    if (over >= rate) over -= rate;
  }
  return kShortestGroup + best;
}

/// Shows the silence after the end.
void SteadyStream::Pad() {
  if (padFor_ == nullptr || block_.audio.nChannels <= 0) return;
  // A rate conversion may yield some samples fewer than the ratio of the rates says.
  const auto count =
      static_cast<std::int64_t>(std::ceil(padFor_->longestFrame() * block_.audio.nSampleRate)) + 64;
  quiet_.assign(static_cast<std::size_t>(count * BytesPerSample(block_)), 0);
  Show(quiet_.data(), count);
}

void SteadyStream::Show(unsigned char* data, std::int64_t count) {
  window_ = block_;
  window_.audio.pData = data;
  window_.audio.nDataSize = static_cast<std::int32_t>(count * BytesPerSample(block_));
  window_.audio.nBufferSize = window_.audio.nDataSize;
  window_.llPTS = window_.llDTS = TimeOf(position_);
  window_.nDuration = static_cast<std::int32_t>(TimeOf(position_ + count) - window_.llPTS);
  sample_.RefreshSampleInfo();
  position_ += count;
  converted_ += count;
  longest_ = std::max(longest_, static_cast<double>(count) / block_.audio.nSampleRate);
  current_ = true;
}

std::int64_t SteadyStream::TimeOf(std::int64_t sample) const {
  const std::int64_t rate = block_.audio.nSampleRate;
  return base_ + sample / rate * kTicksPerSecond +
         (sample % rate * kTicksPerSecond + rate / 2) / rate;
}

/// How many of the next `count` samples come before the split: all, unless it falls between them.
std::int64_t SteadyStream::SamplesBeforeSplit(std::int64_t count) const {
  if (!split_) return count;
  // Exactly the comparison by which the compositor silences a frame.
  const auto before = [&](std::int64_t sample) {
    return static_cast<double>(TimeOf(sample)) / kTicksPerSecond - *split_ < 0;
  };
  if (!before(position_) || before(position_ + count - 1)) return count;
  std::int64_t low = position_;
  std::int64_t high = position_ + count - 1;
  while (high - low > 1) {
    const std::int64_t middle = low + (high - low) / 2;
    (before(middle) ? low : high) = middle;
  }
  return high - position_;
}

HRESULT SteadyStream::GetStreamInfo(IStreamInfo** ppInfo) {
  return inner_->GetStreamInfo(ppInfo);
}

HRESULT SteadyStream::ChangeStream(int index) {
  return inner_->ChangeStream(index);
}

HRESULT SteadyStream::NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) {
  return inner_->NotifyStreamMessage(msg, param, p1, p2);
}

CZelSample* SteadyStream::GetOriginSampleEx() {
  return inner_->GetOriginSampleEx();
}

}  // namespace zel::tool
