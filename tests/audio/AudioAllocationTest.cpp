// How the audio room uses memory.
#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "tests/support/Allocations.h"
#include "zel/audio/AudioConverter.h"
#include "zel/audio/IntermixAudio.h"

namespace {

struct Format {
  int inChannels, outChannels, inRate, outRate;
};
constexpr Format kFormats[] = {{1, 2, 22050, 44100}, {2, 2, 48000, 44100}, {2, 2, 44100, 48000},
                               {6, 2, 48000, 44100}, {2, 6, 44100, 44100}, {2, 2, 44100, 44100},
                               {3, 4, 44100, 48000}};

TEST(AudioAllocation, SteadyStateAllocatesNothing) {
  std::vector<short> in(1024 * 6, 1000), out(1024 * 16);
  for (const Format& f : kFormats) {
    CAudioConverter c(f.inChannels, f.outChannels, f.inRate, f.outRate, 0x100000);
    const auto round = [&] {
      c.Put(in.data(), 1024 * f.inChannels);
      while (c.GetValidSize() > 3000) c.Get(out.data(), 2048);
    };
    for (int i = 0; i < 50; ++i) round();
    const long before = AllocationCount();
    for (int i = 0; i < 5000; ++i) round();
    EXPECT_EQ(AllocationCount(), before) << f.inChannels << " to " << f.outChannels;
  }
  short* inputs[] = {in.data(), in.data() + 1};
  const long before = AllocationCount();
  IntermixAudio(inputs, 2, 4000, out.data());
  EXPECT_EQ(AllocationCount(), before);
}

TEST(AudioAllocation, EverythingIsFreedAsItWasAllocated) {
  std::vector<short> in(3000, 1000);
  const long before = LiveAllocations();
  for (const Format& f : kFormats) {
    CAudioConverter c(f.inChannels, f.outChannels, f.inRate, f.outRate, 10);
    for (int n = 1; n < 3000; n += 99) c.Put(in.data(), n);
  }
  EXPECT_EQ(LiveAllocations(), before);
}

TEST(AudioAllocation, FailuresAnywhereLoseNothing) {
  std::vector<short> in(3000);
  for (int i = 0; i < 3000; ++i) in[i] = static_cast<short>(i * 7);
  for (const Format& f : kFormats) {
    CAudioConverter whole(f.inChannels, f.outChannels, f.inRate, f.outRate, 10);
    whole.Put(in.data(), 600);
    whole.Put(in.data(), 3000);
    bool failed = true;
    for (int succeed = 0; failed; ++succeed) {
      const long before = LiveAllocations();
      {
        failed = false;
        FailAllocationAfter(succeed);
        try {
          CAudioConverter c(f.inChannels, f.outChannels, f.inRate, f.outRate, 10);
          for (int n : {600, 3000}) {
            const int held = c.GetValidSize(), free = c.GetFreeSize();
            for (bool again = true; again;) {
              try {
                c.Put(in.data(), n);
                again = false;
              } catch (const std::bad_alloc&) {
                failed = true;
                FailAllocationAfter(-1);
                EXPECT_EQ(c.GetValidSize(), held);
                EXPECT_EQ(c.GetFreeSize(), free);
              }
            }
          }
          FailAllocationAfter(-1);
          ASSERT_EQ(c.GetValidSize(), whole.GetValidSize());
          CAudioConverter reference(f.inChannels, f.outChannels, f.inRate, f.outRate, 10);
          reference.Put(in.data(), 600);
          reference.Put(in.data(), 3000);
          std::vector<short> a(static_cast<size_t>(c.GetValidSize())), b(a.size());
          c.Get(a.data(), c.GetValidSize());
          reference.Get(b.data(), reference.GetValidSize());
          ASSERT_EQ(a, b);
        } catch (const std::bad_alloc&) {
          failed = true;
        }
        FailAllocationAfter(-1);
      }
      EXPECT_EQ(LiveAllocations(), before);
    }
  }
}

}  // namespace
