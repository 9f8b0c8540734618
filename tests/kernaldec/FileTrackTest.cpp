// The compositor with tracks that it loads itself, through the decoder manager that comes with it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Media.h"

namespace zel::test {
namespace {

/// Passes everything on but seeks, so that every frame comes once.
class Straight final : public scombase::CUnknown, public IMediaStream {
 public:
  explicit Straight(IMediaStream* stream) : CUnknown(nullptr), m_stream(stream) {
    NonDelegatingAddRef();
  }
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    return GetOwner()->QueryInterface(riid, ppv);
  }
  ULONG AddRef() override { return GetOwner()->AddRef(); }
  ULONG Release() override { return GetOwner()->Release(); }
  HRESULT GetStreamInfo(IStreamInfo** out) override { return m_stream->GetStreamInfo(out); }
  HRESULT ChangeStream(int) override { return S_FALSE; }
  int Forward() override { return m_stream->Forward(); }
  int Backward() override { return -1; }
  double Seek(double seconds, int) override { return seconds; }
  CZelSample* GetSampleEx() override { return m_stream->GetSampleEx(); }
  CZelSample* GetOriginSampleEx() override { return m_stream->GetSampleEx(); }
  HRESULT NotifyStreamMessage(unsigned long, long long, void*, void*) override { return S_FALSE; }

 private:
  IMediaStream* m_stream;
};

class FileTrack : public testing::Test {
 protected:
  static constexpr int kSeconds = 20;

  FileTrack() {
    Ffmpeg(folder, "-f lavfi -i aevalsrc=0.1:d=" + std::to_string(kSeconds) + " in.wav");
    Ffmpeg(folder,
           "-f lavfi -i aevalsrc=0.5:s=22050:d=20 -f lavfi -i aevalsrc=0.5:s=48000:d=20 -c:a flac "
           "-map 0 a.mkv -map 1 -c:a pcm_s16le b.wav");
    audio = std::make_unique<Audio>(folder / "in.wav");
    input.reset(new Straight(audio->stream.get()));
    void* out = nullptr;
    EXPECT_EQ(DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, &out), S_OK);
    const Ref<IClassFactory> factory(static_cast<IClassFactory*>(out));
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IAudioCompositor, &out), S_OK);
    compositor.reset(static_cast<IAudioCompositor*>(out));
    EXPECT_EQ(compositor->SetInputAudioStream(input.get()), S_OK);
    IMediaStream* stream = nullptr;
    EXPECT_EQ(compositor->GetOutPutAudioStream(&stream), S_OK);
    output.reset(stream);
  }

  HRESULT Add(const std::string& name) const {
    std::wstring path = media::ToWide(folder / name);
    return compositor->AddByFileName(path.data());
  }

  Folder folder;
  std::unique_ptr<Audio> audio;
  Ref<IMediaStream> input;
  Ref<IAudioCompositor> compositor;
  Ref<IMediaStream> output;
};

TEST_F(FileTrack, ComesAndGoesOnAnotherThreadWhileFramesArePulled) {
  std::vector<std::pair<std::int64_t, int>> frames;
  const Audio again(folder / "in.wav");
  while (again.stream->Forward() == 0) {
    frames.emplace_back(again.Frame()->llPTS, again.Frame()->audio.nDataSize);
  }
  ASSERT_GT(frames.size(), 100U);

  std::atomic<bool> stop = false;
  std::atomic<int> rounds = 0;
  std::thread other([&] {
    std::mt19937 random(6);
    for (; !stop; ++rounds) {
      EXPECT_EQ(Add(random() % 2 != 0 ? "a.mkv" : "b.wav"), S_OK);
      compositor->SetDelayTime(static_cast<double>(random() % 5) - 4);
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 8));
      output->Seek(static_cast<double>(random() % 9), 1);
      compositor->GetDelayTime();
      if (random() % 2 != 0) compositor->Remove();
    }
  });
  int replaced = 0;
  std::size_t count = 0;
  for (;; ++count) {
    output->Forward();
    CZelSample* sample = output->GetSampleEx();
    if (sample == nullptr) break;
    const MEDIA_FRAME& frame = *sample->GetMediaFrame();
    ASSERT_LT(count, frames.size());
    ASSERT_EQ(frame.llPTS, frames[count].first);
    ASSERT_EQ(frame.audio.nDataSize, frames[count].second);
    replaced += reinterpret_cast<const std::int16_t*>(frame.audio.pData)[0] > 10'000 ? 1 : 0;
    // At the other thread's pace, however slow loads are here.
    do {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (static_cast<std::size_t>(rounds) < 20 * count / frames.size());
  }
  stop = true;
  other.join();
  EXPECT_EQ(count, frames.size()) << "no frame of the input is lost";
  EXPECT_GT(replaced, 0);
}

std::size_t Entries(const char* folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST_F(FileTrack, LeavesNothingBehind) {
  const std::size_t threads = Entries("/proc/self/task");
  const std::size_t files = Entries("/proc/self/fd");
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(Add(i % 2 != 0 ? "a.mkv" : "b.wav"), S_OK);
    ASSERT_EQ(Add("missing"), E_INVALIDARG);
    if (i % 5 == 0) compositor->Remove();
  }
  output.reset();
  compositor.reset();
  // A thread that was waited for may be listed a moment longer.
  for (int i = 0; i < 5000 && Entries("/proc/self/task") != threads; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(Entries("/proc/self/task"), threads);
  EXPECT_EQ(Entries("/proc/self/fd"), files);
}

}  // namespace
}  // namespace zel::test
