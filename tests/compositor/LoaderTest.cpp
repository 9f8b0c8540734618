// Loading of a second source by name, against a decoder manager that plays a script. The program
// runs in three folders: with that manager, without any component support library, and with one
// that lacks the entry.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "tests/compositor/ScriptedStream.h"
#include "zel/base/EntryPoints.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/detail/PathText.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/DecoderManager.h"

namespace {

using std::chrono::milliseconds;
namespace fs = std::filesystem;

std::atomic<int> g_live = 0;

/// A component with one interface, counted in g_live.
template <class I>
class Component : public scombase::CUnknown, public I {
 public:
  Component() : CUnknown(nullptr) {
    ++g_live;
    NonDelegatingAddRef();
  }
  ~Component() override { --g_live; }
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    return GetOwner()->QueryInterface(riid, ppv);
  }
  ULONG AddRef() override { return GetOwner()->AddRef(); }
  ULONG Release() override { return GetOwner()->Release(); }
};

class Stream : public ScriptedStream {
 public:
  Stream()
      : ScriptedStream(
            "src", nullptr, [](long) { return Block{}; }, 1'000'000) {
    ++g_live;
  }
  ~Stream() override { --g_live; }
  double Seek(double seconds, int mode) override {
    lastSeek = seconds;
    return ScriptedStream::Seek(seconds, mode);
  }
  static inline std::atomic<double> lastSeek = 0;
};

/// What the manager does, and what it was asked.
struct Script {
  int programs = 1;
  int audioStreams = 1;
  bool opens = true;
  int opensAtMost = std::numeric_limits<int>::max();
  bool hasPrograms = true;
  bool decodes = true;
  bool hasStream = true;
  std::function<void()> whileLoading = [] {};

  std::mutex mutex;
  std::wstring openedName;
  std::wstring decodedName;
  DecoderSelection selection{};
  std::atomic<bool> argumentsAreRight = true;
  std::atomic<int> opened = 0;
  std::atomic<int> decoded = 0;
};

Script* g_script = nullptr;

class Decoder : public Component<IMediaDecoder> {
 public:
  HRESULT GetVideoStream(IMediaStream**) override { return E_FAIL; }
  HRESULT GetAudioStream(IMediaStream** out) override {
    if (!g_script->hasStream) return E_FAIL;
    *out = new Stream;
    return S_OK;
  }
};

class Manager : public Component<IMediaDecoderMgr> {
 public:
  HRESULT CreateDecoder(const wchar_t* name, int reserved, DecoderSelection* selection, int kind,
                        IMediaDecoder** out) override {
    g_script->whileLoading();
    const std::lock_guard lock(g_script->mutex);
    g_script->decodedName = name;
    g_script->selection = *selection;
    g_script->argumentsAreRight =
        g_script->argumentsAreRight && (reserved == 0 && kind == 11 && *out == nullptr);
    ++g_script->decoded;
    if (!g_script->decodes) return E_FAIL;
    *out = new Decoder;
    return S_OK;
  }
  HRESULT OpenMediaInfo(const wchar_t* name, int kind, IMediaInfo** out) override {
    const std::lock_guard lock(g_script->mutex);
    g_script->openedName = name;
    g_script->argumentsAreRight = g_script->argumentsAreRight && (kind == 11 && *out == nullptr);
    ++g_script->opened;
    if (!g_script->opens || g_script->opened > g_script->opensAtMost) return E_FAIL;
    StreamInfo streams[2] = {};
    streams[0].id = 0x70005;
    ProgramInfo program = {};
    program.id = 7;
    program.audioStreamCount = g_script->audioStreams;
    program.audioStreams = streams;
    MEDIA_FILE_INFO file = {};
    file.programCount = g_script->programs;
    file.programs = &program;
    struct Counted : CMediaInfo {
      Counted() { ++g_live; }
      ~Counted() override { --g_live; }
    };
    auto* info = new Counted;
    if (g_script->hasPrograms) info->Fill(&file);
    info->AddRef();
    *out = info;
    return S_OK;
  }
};

HRESULT CreateManager(const _GUID& clsid, IUnknown* outer, unsigned long context, const _GUID& iid,
                      void** out) {
  g_script->argumentsAreRight =
      g_script->argumentsAreRight &&
      (ZelIsEqualGUID(clsid, CLSID_CMediaDecoderMgr) && outer == nullptr && context == 0 &&
       ZelIsEqualGUID(iid, IID_IMediaDecoderMgr));
  *out = static_cast<IMediaDecoderMgr*>(new Manager);
  return S_OK;
}

IAudioCompositor* MakeCompositor() {
  void* out = nullptr;
  EXPECT_EQ(DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, &out), S_OK);
  auto* factory = static_cast<IClassFactory*>(out);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IAudioCompositor, &out), S_OK);
  factory->Release();
  return static_cast<IAudioCompositor*>(out);
}

std::size_t Entries(const char* folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

/// Bytes that the allocator has given out and not got back.
std::size_t BytesInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// Bytes of address space: threads that nobody waited for keep their stacks.
std::size_t AddressSpace() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

class LoaderTest : public testing::Test {
 protected:
  LoaderTest() {
    g_script = &script;
    const std::string path =
        fs::read_symlink("/proc/self/exe").parent_path() / "libCOMSupport.dylib";
    void* library = dlopen(path.c_str(), RTLD_LAZY);
    void* slot = library != nullptr ? dlsym(library, "g_createInstance") : nullptr;
    if (slot == nullptr) {
      ADD_FAILURE() << path << " is not the scripted library";
      return;
    }
    *static_cast<decltype(&ZelCreateInstance)*>(slot) = CreateManager;
    Open();
  }
  void Open() {
    compositor = MakeCompositor();
    compositor->GetOutPutAudioStream(&output);
    auto* input = new ScriptedStream(
        "in", nullptr,
        [](long n) {
          Block block;
          block.pts = n * 1'000'000;
          return block;
        },
        1'000'000'000, 3);
    input->seekable = false;
    compositor->SetInputAudioStream(input);
    input->Release();
  }
  /// Waits for a load that is under way.
  void Close() {
    if (compositor == nullptr) return;
    output->Release();
    compositor->Release();
    compositor = nullptr;
  }
  void TearDown() override {
    Close();
    EXPECT_EQ(g_live, 0);
    EXPECT_EQ(g_liveStreams, 0);
    EXPECT_TRUE(script.argumentsAreRight);
  }
  HRESULT Add(std::wstring name) { return compositor->AddByFileName(name.data()); }
  /// True once a pulled frame's bytes are the source's and not the input's.
  bool IsReplaced() {
    output->Forward();
    const MEDIA_FRAME* frame = output->GetSampleEx()->GetMediaFrame();
    return frame->audio.pData[0] != OwnByte(frame);
  }
  void WaitUntilDecoded(int count = 1) const {
    while (script.decoded < count) std::this_thread::yield();
  }
  bool IsReplacedSoon() {
    for (int i = 0; i < 2000; ++i) {
      if (IsReplaced()) return true;
      std::this_thread::sleep_for(milliseconds(1));
    }
    return false;
  }

  Script script;
  IAudioCompositor* compositor = nullptr;
  IMediaStream* output = nullptr;

 private:
  static unsigned char OwnByte(const MEDIA_FRAME* frame) {
    const auto n = static_cast<std::size_t>(frame->llPTS / 1'000'000);
    return static_cast<unsigned char>(((n * 7919 * 31 + 3) * 2 + 0x0101) | 0x0101);
  }
};

}  // namespace

TEST(PathText, IsUtf8CutAtAWholeCharacter) {
  char out[zel::kMaxPathBytes + 1];
  const auto text = [&out](const std::wstring& path) {
    return std::string(out, zel::PathToUtf8(path.c_str(), out));
  };
  EXPECT_EQ(text(L""), "");
  EXPECT_EQ(text(L"/a\x7F\x80\x7FF\x800\xFFFF"), "/a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF");
  EXPECT_EQ(text({L'a', 0x10000, 0x10FFFF}), "a\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(text({0x110000, static_cast<wchar_t>(-1), L'z'}), "\xEF\xBF\xBD\xEF\xBF\xBDz");
  EXPECT_EQ(text(std::wstring(5000, L'x')), std::string(2047, 'x'));
  EXPECT_EQ(text(std::wstring(2046, L'x') + L"\xE9y"), std::string(2046, 'x'));
  EXPECT_EQ(text(std::wstring(2045, L'x') + L"\xE9y"), std::string(2045, 'x') + "\xC3\xA9");
}

// Run in folders of its own.
TEST(LoaderWithoutManager, Refuses) {
  IAudioCompositor* compositor = MakeCompositor();
  std::wstring name = L"track.wav";
  EXPECT_EQ(compositor->AddByFileName(name.data()), E_FAIL);
  EXPECT_EQ(compositor->AddByFileName(name.data()), E_FAIL) << "the name was not taken";
  EXPECT_EQ(compositor->AddByFileName(nullptr), E_POINTER);
  EXPECT_EQ(compositor->Release(), 0u);
}

TEST_F(LoaderTest, AddsTheFirstAudioStreamOfTheFirstProgram) {
  ASSERT_EQ(Add(L"\x442\x440\x435\x43A \x1F3B5.flac"), S_OK);
  EXPECT_TRUE(IsReplacedSoon());
  EXPECT_EQ(script.openedName, L"\x442\x440\x435\x43A \x1F3B5.flac");
  EXPECT_EQ(script.decodedName, script.openedName);
  EXPECT_EQ(script.selection.size, 52u);
  EXPECT_EQ(script.selection.programId, 7u);
  EXPECT_EQ(script.selection.streamId, 0x70005u);
  EXPECT_EQ(script.selection.reserved0, 0u);
  EXPECT_EQ(script.opened, 2) << "the probe and the load";
}

TEST_F(LoaderTest, OpensAFileThatIsThereOnlyOnce) {
  ASSERT_EQ(Add(L"a"), S_OK);
  ASSERT_TRUE(IsReplacedSoon());
  EXPECT_EQ(Add(L"a"), S_OK);
  EXPECT_EQ(script.opened, 2);
  EXPECT_EQ(compositor->Remove(), S_OK);
  EXPECT_FALSE(IsReplaced());
  EXPECT_EQ(Add(L"a"), S_OK);
  EXPECT_TRUE(IsReplacedSoon());
  EXPECT_EQ(Add(L"b"), S_OK);
  EXPECT_EQ(Add(L"a"), S_OK);
  Close();  // The last load, too, has opened its file then.
  EXPECT_EQ(script.opened, 8);
}

TEST_F(LoaderTest, ARefusedFileKeepsTheSourceBefore) {
  ASSERT_EQ(Add(L"good"), S_OK);
  ASSERT_TRUE(IsReplacedSoon());
  script.opens = false;
  EXPECT_EQ(Add(L"bad"), E_INVALIDARG);
  EXPECT_EQ(Add(L"bad"), E_INVALIDARG) << "and its name is not taken";
  EXPECT_EQ(Add(L"good"), S_OK);
  EXPECT_TRUE(IsReplacedSoon());
}

TEST_F(LoaderTest, WhateverIsMissingEndsTheLoad) {
  struct Row {
    const char* what;
    void (*set)(Script&);
    bool reachesDecoder;
  };
  const Row rows[] = {
      {"no file any more", [](Script& s) { s.opensAtMost = 1; }, false},
      {"no program list", [](Script& s) { s.hasPrograms = false; }, false},
      {"no program", [](Script& s) { s.programs = 0; }, false},
      {"no audio stream", [](Script& s) { s.audioStreams = 0; }, true},
      {"no decoder", [](Script& s) { s.decodes = false; }, true},
      {"no stream", [](Script& s) { s.hasStream = false; }, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Close();
    Script fresh;
    g_script = &fresh;
    row.set(fresh);
    if (fresh.audioStreams == 0) fresh.hasStream = false;
    Open();
    EXPECT_EQ(Add(L"x"), S_OK);
    EXPECT_FALSE(IsReplaced());
    Close();
    EXPECT_EQ(fresh.opened, 2);
    EXPECT_EQ(fresh.decoded, row.reachesDecoder ? 1 : 0);
    EXPECT_TRUE(fresh.argumentsAreRight);
    EXPECT_EQ(g_live, 0);
    if (fresh.audioStreams == 0) {
      const DecoderSelection zero = {};
      EXPECT_EQ(std::memcmp(&fresh.selection, &zero, sizeof(zero)), 0);
    }
  }
  g_script = &script;
}

TEST_F(LoaderTest, PullsAndSeeksGoOnDuringALoad) {
  std::atomic<bool> finish = false;
  script.whileLoading = [&finish] {
    while (!finish) std::this_thread::sleep_for(milliseconds(1));
  };
  compositor->SetDelayTime(0.5);
  ASSERT_EQ(Add(L"slow"), S_OK);
  for (int i = 0; i < 20; ++i) output->Forward();
  EXPECT_FALSE(IsReplaced());
  output->Seek(12.25, 4);
  finish = true;
  while (Stream::lastSeek != 11.75) std::this_thread::yield();
  EXPECT_TRUE(IsReplacedSoon());
}

TEST_F(LoaderTest, ALoadOutlivesRemove) {
  std::atomic<bool> finish = false;
  script.whileLoading = [&finish] {
    while (!finish) std::this_thread::sleep_for(milliseconds(1));
  };
  ASSERT_EQ(Add(L"slow"), S_OK);
  compositor->Remove();
  finish = true;
  WaitUntilDecoded();
  EXPECT_TRUE(IsReplacedSoon());
}

TEST_F(LoaderTest, DestructionAndTheNextLoadWaitForALoad) {
  script.whileLoading = [] { std::this_thread::sleep_for(milliseconds(60)); };
  ASSERT_EQ(Add(L"first"), S_OK);
  ASSERT_EQ(Add(L"second"), S_OK);
  EXPECT_EQ(script.decoded, 1);
  Close();
  EXPECT_EQ(script.decoded, 2);
  EXPECT_EQ(script.decodedName, L"second");
}

TEST_F(LoaderTest, ManyLoadsLeaveNothingBehind) {
// Emulated and sanitized, memory is also the emulator's or the sanitizer's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__i386__)
  const int loads = 300;
  const bool memoryIsOurs = false;
#else
  const int loads = 10'000;
  const bool memoryIsOurs = true;
#endif
  std::size_t threads = 0;
  std::size_t files = 0;
  std::size_t bytes = 0;
  std::size_t addresses = 0;
  for (int i = 0; i < loads; ++i) {
    ASSERT_EQ(Add(i % 2 != 0 ? L"a" : L"b"), S_OK);
    if (i == 10) {
      threads = Entries("/proc/self/task");
      files = Entries("/proc/self/fd");
      bytes = BytesInUse();
      addresses = AddressSpace();
    }
  }
  EXPECT_LE(Entries("/proc/self/task"), threads + 1);
  EXPECT_EQ(Entries("/proc/self/fd"), files);
  if (memoryIsOurs) {
    // Less than a byte and a tenth of a stack per load.
    EXPECT_LT(BytesInUse(), bytes + loads);
    EXPECT_LT(AddressSpace(), addresses + loads * std::size_t{800'000});
  }
}

TEST_F(LoaderTest, PullingWhileAnotherThreadAddsRemovesDelaysAndSeeks) {
  std::atomic<bool> stop = false;
  std::thread other([&] {
    std::mt19937 random(4);
    for (int i = 0; !stop; ++i) {
      Add(i % 3 == 0 ? L"a" : L"b");
      compositor->SetDelayTime(static_cast<double>(random() % 4) - 2);
      if (random() % 3 == 0) compositor->Remove();
      output->Seek(static_cast<double>(random() % 9), 1);
    }
  });
  for (int i = 0; i < 2000; ++i) {
    output->Forward();
    CZelSample* sample = output->GetSampleEx();
    ASSERT_NE(sample, nullptr);
    ASSERT_EQ(sample->GetMediaFrame()->llPTS, i * 1'000'000LL) << "no frame of the input is lost";
    std::this_thread::yield();
  }
  stop = true;
  other.join();
}
