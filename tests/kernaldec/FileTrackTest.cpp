// The compositor with tracks that it loads itself, through the decoder manager that comes with it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "tests/support/Media.h"

namespace zel::test {
namespace {

using std::chrono::milliseconds;

/// Passes frames on and seeks nowhere, so that every frame comes once.
class Straight final : public Component<IMediaStream> {
 public:
  explicit Straight(const Ref<IMediaStream>& stream) : stream_(stream) {}
  HRESULT GetStreamInfo(IStreamInfo** out) override { return stream_->GetStreamInfo(out); }
  int Forward() override { return stream_->Forward(); }
  CZelSample* GetSampleEx() override { return stream_->GetSampleEx(); }

 private:
  const Ref<IMediaStream> stream_;
};

std::size_t Entries(const char* folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(FileTrack, ComesAndGoesOnAnotherThreadAndLeavesNothingBehind) {
  const Folder folder;
  Ffmpeg(folder,
         "-f lavfi -i aevalsrc=0.1:d=20 -f lavfi -i aevalsrc=0.5:s=22050:d=20 -f lavfi -i "
         "aevalsrc=0.5:s=48000:d=20 -map 0 in.wav -map 1 -c:a flac a.mkv -map 2 b.wav");
  const std::size_t whole = Audio(folder / "in.wav").All().size();
  const Audio audio(folder / "in.wav");
  const std::size_t threads = Entries("/proc/self/task");
  const std::size_t files = Entries("/proc/self/fd");
  Ref<IClassFactory> factory;
  DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
  Ref<IAudioCompositor> compositor;
  factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
  ASSERT_EQ(compositor->SetInputAudioStream(MakeComponent<Straight>(audio.stream).get()), S_OK);
  Ref<IMediaStream> output;
  ASSERT_EQ(compositor->GetOutPutAudioStream(output.Receive()), S_OK);

  std::atomic<bool> stop = false;
  std::atomic<std::size_t> rounds = 0;
  std::thread other([&] {
    std::mt19937 random(6);
    for (; !stop; ++rounds) {
      for (const char* name : {random() % 2 != 0 ? "a.mkv" : "b.wav", "missing"}) {
        EXPECT_EQ(compositor->AddByFileName(media::ToWide(folder / name).data()),
                  name[0] == 'm' ? E_INVALIDARG : S_OK);
      }
      compositor->SetDelayTime(static_cast<double>(random() % 5) - 4);
      std::this_thread::sleep_for(milliseconds(random() % 8));
      output->Seek(static_cast<double>(random() % 9), 1);
      if (random() % 2 != 0) compositor->Remove();
    }
  });
  int replaced = 0;
  std::size_t at = 0;
  while (output->Forward(), output->GetSampleEx() != nullptr) {
    const MEDIA_FRAME& frame = *output->GetSampleEx()->GetMediaFrame();
    EXPECT_EQ(frame.llPTS, std::llround(static_cast<double>(at) / 2 * kTicksPerSecond / 44100));
    at += static_cast<std::size_t>(frame.audio.nDataSize);
    replaced += reinterpret_cast<const std::int16_t*>(frame.audio.pData)[0] > 10'000 ? 1 : 0;
    // At the other thread's pace, however slow loads are here.
    do {
      std::this_thread::sleep_for(milliseconds(1));
    } while (rounds < 20 * at / whole);
  }
  stop = true;
  other.join();
  EXPECT_EQ(at, whole) << "no frame of the input is lost";
  EXPECT_GT(replaced, 0);

  output = nullptr;
  compositor = nullptr;
  // A thread that was waited for may be listed a moment longer.
  for (int i = 0; i < 5000 && Entries("/proc/self/task") != threads; ++i) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_EQ(Entries("/proc/self/task"), threads);
  EXPECT_EQ(Entries("/proc/self/fd"), files);
}

}  // namespace
}  // namespace zel::test
