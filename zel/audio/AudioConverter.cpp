#include "zel/audio/AudioConverter.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>

#include "zel/audio/detail/AudioKernels.h"
#include "zel/detail/Inline.h"

namespace {

constexpr int kDefaultCapacity = 0x100000;
// A position table holds the positions of one call; a longer call computes them piece by piece.
constexpr int kTableFrames = 8192;
constexpr int kPieceFrames = 1024;
// The queue moves back to the start of its array no sooner than this many samples have been taken.
constexpr std::ptrdiff_t kTakenFirst = 8192;
// The largest number of samples that an array can hold, alignment included.
constexpr std::int64_t kMostSamples = PTRDIFF_MAX / static_cast<std::int64_t>(sizeof(short)) - 64;
// Blocks of one size yield two or three different lengths in turn.
constexpr int kTables = 4;

std::size_t Bytes(std::ptrdiff_t samples) {
  return static_cast<std::size_t>(samples) * sizeof(short);
}

// An array whose first sample is aligned for the widest registers: a store that crosses a cache
// line costs twice as much. (It does not use the aligned operator new, because a host that replaces
// operator new would have to replace that one, too.)
class AlignedSamples {
 public:
  AlignedSamples() = default;
  explicit AlignedSamples(std::size_t size)
      : size_(static_cast<std::ptrdiff_t>(size)), memory_(new short[size + kAlignment]) {}

  short* begin() const {
    const std::size_t beyond =
        reinterpret_cast<std::uintptr_t>(memory_.get()) / sizeof(short) % kAlignment;
    return memory_.get() + (kAlignment - beyond) % kAlignment;
  }
  std::ptrdiff_t size() const { return size_; }

 private:
  static constexpr std::size_t kAlignment = 64 / sizeof(short);  // In samples.

  std::ptrdiff_t size_ = 0;
  std::unique_ptr<short[]> memory_;
};

int CheckedInt(std::int64_t value) {
  if (value > INT_MAX) throw std::bad_alloc();
  return static_cast<int>(value);
}

// The positions of one call. They depend on its lengths alone.
struct PositionTable {
  int n = 0;
  int t = 0;
  int room = 0;  // Frames that both arrays hold.
  unsigned lastUse = 0;
  std::unique_ptr<std::int32_t[]> k;
  std::unique_ptr<double[]> f;

  void Reserve(int frames) {
    n = t = 0;
    if (frames <= room) return;
    int larger = kPieceFrames;
    while (larger < frames) larger *= 2;
    k = std::make_unique<std::int32_t[]>(static_cast<std::size_t>(larger));
    f = std::make_unique<double[]>(static_cast<std::size_t>(larger));
    room = larger;
  }
};

}  // namespace

static_assert(FLT_EVAL_METHOD == 0,
              "doubles are rounded after every operation (not so by the x87)");

// What a conversion needs beside the class's own members, and the conversion itself.
//
// The queue is a window that moves up through its array as samples are taken. It moves back to the
// start once it holds fewer samples than were taken, so each sample taken pays for at most one
// move.
//
// The work area holds the history frame, the call's input in output channels, and a frame of
// silence as the neighbour of the last frame, which may be partial. A mono source that only gets
// doubled stays mono there: interpolating before doubling gives the same samples for half the work.
struct CAudioConverter::Work {
  explicit Work(const CAudioConverter& converter);

  std::int64_t Need(int n) const;
  int GrownCapacity(int capacity, int n, std::int64_t wanted) const;
  short* MakeRoom(CAudioConverter& c, int newSamples);
  int Convert(CAudioConverter& c, const short* data, int n, int capacity);

  const zel::audio::Kernels& kernels = zel::audio::ActiveKernels();
  zel::audio::ChannelKernel channelKernel = nullptr;
  const bool sameChannels;
  const bool sameRate;
  const double outPerIn;  // Ratios of the sample rates.
  const double inPerOut;
  bool silent;       // The rules lack this pair of channel counts.
  bool doubling;     // From one channel to two, and to another rate.
  int workChannels;  // Channels of the frames in the work area.

  AlignedSamples queue;

 private:
  // What n input samples become: `mixed` samples in output channels, then `made` at the output
  // rate.
  struct Lengths {
    int frames;  // Whole input frames; counts only if channels change.
    int mixed, made;
  };

  Lengths Count(const CAudioConverter& c, int n) const;
  void Resample(const CAudioConverter& c, const short* data, int n, const Lengths& lengths,
                short* out);
  int MixInto(const short* data, int n, int frames, int outSamples, short* out) const;
  void ReserveArea(std::int64_t inSamples);
  PositionTable& FindTable(int n, int t, int frames);
  void Interpolate(const PositionTable& table, int first, int frames, short* out) const;

  std::unique_ptr<short[]> area_;
  std::ptrdiff_t areaSize_ = 0;
  PositionTable tables_[kTables];
  unsigned uses_ = 0;
};

CAudioConverter::Work::Work(const CAudioConverter& c)
    : sameChannels(c.m_nInChannels == c.m_nOutChannels),
      sameRate(c.m_nInSampleRate == c.m_nOutSampleRate),
      outPerIn(static_cast<double>(c.m_nOutSampleRate) / c.m_nInSampleRate),
      inPerOut(static_cast<double>(c.m_nInSampleRate) / c.m_nOutSampleRate) {
  const int column = zel::audio::ChannelColumn(c.m_nOutChannels);
  if (!sameChannels && c.m_nInChannels <= 8 && column >= 0) {
    channelKernel = kernels.channels[c.m_nInChannels - 1][column];
  }
  silent = !sameChannels && channelKernel == nullptr;
  doubling = !sameRate && c.m_nInChannels == 1 && c.m_nOutChannels == 2;
  workChannels = doubling ? 1 : c.m_nOutChannels;
}

// Estimates the room that n input samples need. `Put` grows the queue if there is less.
std::int64_t CAudioConverter::Work::Need(int n) const {
  const double need = (n * outPerIn) * 6.0;  // 6: the widest expansion, from one channel to six.
  if (need > INT_MAX) throw std::bad_alloc();
  return static_cast<std::int64_t>(need);
}

// Returns `capacity`, or if `wanted` is more, `capacity` plus as many increments as it takes.
int CAudioConverter::Work::GrownCapacity(int capacity, int n, std::int64_t wanted) const {
  if (wanted <= capacity) return capacity;
  const std::int64_t increment = 2 * Need(n) + 4096;
  const std::int64_t times = (wanted - capacity + increment - 1) / increment;
  return CheckedInt(capacity + times * increment);
}

// Makes room for `newSamples` behind the samples held.
short* CAudioConverter::Work::MakeRoom(CAudioConverter& c, int newSamples) {
  const std::ptrdiff_t held = c.m_nValidSize;
  std::ptrdiff_t taken = c.m_pOutBuffer - queue.begin();
  if (held == 0 || taken >= held + kTakenFirst) {
    if (held > 0) std::memcpy(queue.begin(), c.m_pOutBuffer, Bytes(held));
    c.m_pOutBuffer = queue.begin();
    taken = 0;
  }
  if (newSamples > queue.size() - held - taken) {
    // The array is less than twice as long as what it has to hold (plus kTakenFirst).
    const std::int64_t larger = 2 * (std::int64_t{held} + newSamples) + kTakenFirst;
    if (larger > kMostSamples) throw std::bad_alloc();
    AlignedSamples newQueue(static_cast<std::size_t>(larger));
    std::memcpy(newQueue.begin(), c.m_pOutBuffer, Bytes(held));
    queue = std::move(newQueue);
    c.m_pOutBuffer = queue.begin();
  }
  return c.m_pOutBuffer + held;
}

// The channel stage: turns n input samples (`frames` whole frames) into `outSamples` samples in the
// work area or the queue.
int CAudioConverter::Work::MixInto(const short* data, int n, int frames, int outSamples,
                                   short* out) const {
  if (sameChannels || doubling) {
    if (n > 0) std::memcpy(out, data, Bytes(n));
    return n;
  }
  std::ptrdiff_t written = 0;
  if (!silent) {
    channelKernel(data, frames, out);
    written = static_cast<std::ptrdiff_t>(frames) * workChannels;
  }
  if (outSamples > written) std::memset(out + written, 0, Bytes(outSamples - written));
  return outSamples;
}

void CAudioConverter::Work::ReserveArea(std::int64_t inSamples) {
  const std::int64_t wanted = inSamples + std::int64_t{2} * workChannels + zel::audio::kReadSlack;
  if (wanted <= areaSize_) return;
  const int larger = CheckedInt(wanted + inSamples / 2);
  auto newArea = std::make_unique<short[]>(static_cast<std::size_t>(larger));
  if (area_) std::memcpy(newArea.get(), area_.get(), Bytes(workChannels));
  area_ = std::move(newArea);
  areaSize_ = larger;
}

// Finds the table with the positions of a call that makes t samples of n. If the call is too long
// for one, the table has room for a piece of them.
PositionTable& CAudioConverter::Work::FindTable(int n, int t, int frames) {
  PositionTable* oldest = tables_;
  ++uses_;
  for (PositionTable& table : tables_) {
    if (table.n == n && table.t == t) {
      table.lastUse = uses_;
      return table;
    }
    if (uses_ - table.lastUse > uses_ - oldest->lastUse) oldest = &table;
  }
  oldest->lastUse = uses_;
  if (frames > kTableFrames) {
    oldest->Reserve(kPieceFrames);
  } else {
    oldest->Reserve(frames);
    kernels.positions(0, frames, n, t, oldest->k.get(), oldest->f.get());
    oldest->n = n;
    oldest->t = t;
  }
  return *oldest;
}

void CAudioConverter::Work::Interpolate(const PositionTable& table, int first, int frames,
                                        short* out) const {
  const short* in = area_.get() + workChannels;
  const std::int32_t* k = table.k.get() + first;
  const double* f = table.f.get() + first;
  if (doubling) {
    kernels.interpolateMonoToStereo(in, k, f, frames, out);
  } else {
    kernels.interpolate(in, k, f, frames, workChannels, out);
  }
}

ZEL_INLINE CAudioConverter::Work::Lengths CAudioConverter::Work::Count(const CAudioConverter& c,
                                                                       int n) const {
  Lengths lengths = {0, n, n};
  if (!sameChannels && !silent) {
    lengths.frames = n / c.m_nInChannels;
    const std::int64_t rest = n - lengths.frames * c.m_nInChannels;
    lengths.mixed = CheckedInt(static_cast<std::int64_t>(lengths.frames) * c.m_nOutChannels +
                               (rest == 0 ? 0 : rest * c.m_nOutChannels / c.m_nInChannels));
  }
  lengths.made = lengths.mixed;
  if (!sameRate) {
    const double exact = (c.m_dRemainder + lengths.mixed) / inPerOut + 0.5;
    if (exact > INT_MAX) throw std::bad_alloc();
    lengths.made = static_cast<int>(exact);
    lengths.made -= lengths.made % c.m_nOutChannels;
  }
  return lengths;
}

// The channel stage into the work area, then the rate stage to `out`. Keeps the last frame.
ZEL_INLINE void CAudioConverter::Work::Resample(const CAudioConverter& c, const short* data, int n,
                                                const Lengths& lengths, short* out) {
  const int outFrames = lengths.made / c.m_nOutChannels;
  ReserveArea(lengths.mixed);
  PositionTable* table =
      outFrames > 0 ? &FindTable(lengths.mixed, lengths.made, outFrames) : nullptr;
  short* in = area_.get() + workChannels;
  const int inSamples = MixInto(data, n, lengths.frames, lengths.mixed, in);
  std::memset(in + inSamples, 0, Bytes(workChannels));
  if (table != nullptr && table->t == lengths.made) {
    Interpolate(*table, 0, outFrames, out);
  } else if (table != nullptr) {
    for (int first = 0; first < outFrames; first += kPieceFrames) {
      const int piece = std::min(outFrames - first, kPieceFrames);
      kernels.positions(first, piece, lengths.mixed, lengths.made, table->k.get(), table->f.get());
      Interpolate(*table, 0, piece, out + static_cast<std::ptrdiff_t>(first) * c.m_nOutChannels);
    }
  }
  std::memmove(area_.get(), area_.get() + inSamples, Bytes(workChannels));
}

// Converts n samples to the end of the queue. Allocates everything before the first visible change.
int CAudioConverter::Work::Convert(CAudioConverter& c, const short* data, int n, int capacity) {
  const Lengths lengths = Count(c, n);
  capacity = GrownCapacity(capacity, n, std::int64_t{c.m_nValidSize} + lengths.made);
  short* out = MakeRoom(c, lengths.made);
  if (sameRate) {
    MixInto(data, n, lengths.frames, lengths.made, out);
  } else if (silent) {
    std::memset(out, 0, Bytes(lengths.made));
  } else {
    Resample(c, data, n, lengths, out);
  }
  c.m_nBufferSize = capacity;
  c.m_dRemainder += lengths.mixed - lengths.made * inPerOut;
  return lengths.made;
}

CAudioConverter::CAudioConverter(int nInChannels, int nOutChannels, int nInSampleRate,
                                 int nOutSampleRate, int nBufferSize)
    : m_nBufferSize(nBufferSize == 0 ? kDefaultCapacity : nBufferSize),
      m_nValidSize(0),
      m_nInChannels(nInChannels),
      m_nOutChannels(nOutChannels),
      m_nInSampleRate(nInSampleRate),
      m_nOutSampleRate(nOutSampleRate),
      m_dRemainder(0) {
  if (nInChannels < 1 || nOutChannels < 1) {
    throw std::invalid_argument("CAudioConverter: channel counts must be at least 1");
  }
  if (nInSampleRate < 1 || nOutSampleRate < 1) {
    throw std::invalid_argument("CAudioConverter: sample rates must be at least 1 Hz");
  }
  if (nBufferSize < 0) {
    throw std::invalid_argument("CAudioConverter: the capacity must not be negative");
  }
  auto work = std::make_unique<Work>(*this);
  work->queue = AlignedSamples(static_cast<std::size_t>(m_nBufferSize));
  m_pOutBuffer = work->queue.begin();
  m_pWorkBuffer = work.release();
}

CAudioConverter::~CAudioConverter() {
  delete m_pWorkBuffer;
}

int CAudioConverter::Put(const short* pData, int nSamples) {
  if (nSamples <= 0) return m_nValidSize;
  Work& work = *m_pWorkBuffer;
  const int capacity =
      work.GrownCapacity(m_nBufferSize, nSamples, m_nValidSize + work.Need(nSamples));
  m_nValidSize += work.Convert(*this, pData, nSamples, capacity);
  return m_nValidSize;
}

int CAudioConverter::ConvertData(const short* pData, int nSamples) {
  return m_pWorkBuffer->Convert(*this, pData, std::max(nSamples, 0), m_nBufferSize);
}

int CAudioConverter::Get(short* pOut, int nSamples) {
  const int taken = std::clamp(nSamples, 0, m_nValidSize);
  if (taken > 0) std::memcpy(pOut, m_pOutBuffer, Bytes(taken));
  m_pOutBuffer += taken;
  m_nValidSize -= taken;
  return taken;
}

int CAudioConverter::GetFreeSize() const {
  return m_nBufferSize - m_nValidSize;
}

int CAudioConverter::GetValidSize() const {
  return m_nValidSize;
}

void CAudioConverter::Reset() {
  m_nValidSize = 0;
}

int CAudioConverter::GetInputChannels() {
  return m_nInChannels;
}

int CAudioConverter::GetInputSampleRate() {
  return m_nInSampleRate;
}
