// Loading of a second source by name, against a decoder manager that plays a script. The program
// runs in three folders: with that manager, without any component support library, and with one
// that lacks the entry.
#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include "tests/compositor/CountedThreads.h"
#include "tests/compositor/ScriptedStream.h"
#include "zel/compositor/Checks.h"
#include "zel/compositor/detail/PathText.h"

namespace zel::test {
namespace {

using std::chrono::milliseconds;

constexpr short kInput = 1000;
constexpr short kTrack = 7777;

using Selection = std::array<std::uint32_t, 13>;  // A DecoderSelection.

/// What the manager does, and what it was asked.
struct Plan {
  std::string missing;  // The name of the objects that nobody gets, but for the probe's media.
  std::function<void()> whileLoading = [] {};
  std::atomic<bool> holdsLoads = false;

  std::wstring LastDecoded() {
    const std::lock_guard lock(mutex);
    return decodedName;
  }

  std::mutex mutex;
  std::wstring openedName;
  std::wstring decodedName;
  Selection selection{};
  Log released;  // Every release since the last file was opened.
  std::atomic<int> opened = 0;
  std::atomic<int> decoded = 0;
};
Plan* g_plan = nullptr;

void NoteRelease(const char* name) {
  const std::lock_guard lock(g_plan->mutex);
  g_plan->released.push_back(name);
}

/// A `Base` that writes down its releases.
template <class Base>
struct Noted : Base {
  template <class... Args>
  explicit Noted(const char* noted, Args... args) : Base(std::move(args)...), name(noted) {}
  ULONG NonDelegatingRelease() override {
    NoteRelease(name);
    return Base::NonDelegatingRelease();
  }
  const char* const name;
};

template <class T, class I>
HRESULT Give(const char* name, I** out) {
  if (g_plan->missing == name) return E_FAIL;
  *out = MakeComponent<Noted<T>>(name).Detach();
  return S_OK;
}

/// Gives a list of two objects. The first one has the name.
template <class List, class Item, class I>
HRESULT GiveList(const char* name, const char* itemName, I** out) {
  if (g_plan->missing == name) return E_FAIL;
  auto list = MakeComponent<Noted<List>>(name);
  for (const char* each : {itemName, "other"}) {
    if (g_plan->missing != itemName) list->Add(new Noted<Item>(each));
  }
  *out = list.Detach();
  return S_OK;
}

struct Stream : CStreamInfo {
  std::uint32_t GetID() override { return 0x70005; }
};

struct Program : CProgramInfo {
  std::uint32_t GetID() override { return 7; }
  HRESULT GetAudioStreamInfos(IStreamInfos** out) override {
    return GiveList<CStreamInfos, Stream>("streams", "stream", out);
  }
};

struct Programs : CProgramInfos {
  HRESULT GetItem(int index, IProgramInfo** out) override {
    return g_plan->missing == "item" ? E_FAIL : CProgramInfos::GetItem(index, out);
  }
};

struct Media : CMediaInfo {
  HRESULT GetIPrograms(IProgramInfos** out) override {
    return GiveList<Programs, Program>("programs", "program", out);
  }
};

struct Track : ScriptedStream {
  Track() : ScriptedStream("src", nullptr, [](long) { return Block{.value = kTrack}; }) {
    if (g_plan->missing == "channels") record.audioInfo.channels = 0;
  }
  double Seek(double seconds, int mode) override {
    lastSeek = seconds;
    return ScriptedStream::Seek(seconds, mode);
  }
  static inline std::atomic<double> lastSeek = 0;
};

struct Decoder : Component<IMediaDecoder> {
  HRESULT GetVideoStream(IMediaStream**) override { return E_FAIL; }
  HRESULT GetAudioStream(IMediaStream** out) override { return Give<Track>("track", out); }
};

struct Manager : Component<IMediaDecoderMgr> {
  HRESULT CreateDecoder(const wchar_t* name, int reserved, DecoderSelection* selection, int kind,
                        IMediaDecoder** out) override {
    g_plan->whileLoading();
    while (g_plan->holdsLoads) std::this_thread::sleep_for(milliseconds(1));
    const std::lock_guard lock(g_plan->mutex);
    g_plan->decodedName = name;
    std::memcpy(&g_plan->selection, selection, sizeof *selection);
    EXPECT_TRUE(reserved == 0 && kind == 11 && *out == nullptr);
    ++g_plan->decoded;
    return Give<Decoder>("decoder", out);
  }
  HRESULT OpenMediaInfo(const wchar_t* name, int kind, IMediaInfo** out) override {
    const std::lock_guard lock(g_plan->mutex);
    g_plan->released.clear();
    g_plan->openedName = name;
    EXPECT_TRUE(kind == 11 && *out == nullptr);
    return Give<Media>(++g_plan->opened == 1 ? "probed media" : "media", out);
  }
};

class LoaderTest : public testing::Test {
 protected:
  LoaderTest() { Open(); }
  void Open() {
    plan = std::make_unique<Plan>();
    g_plan = plan.get();
    host = std::make_unique<Host>();
    const Script script = [](long n) { return Block{.pts = n * 1'000'000, .value = kInput}; };
    input = MakeComponent<Noted<ScriptedStream>>("input", "in", nullptr, script);
    input->seekable = false;
    host->compositor->SetInputAudioStream(input.get());
  }
  /// Waits for a load that is under way.
  void Close() {
    if (host != nullptr) host->Close();
    host = nullptr;
    input = nullptr;
    EXPECT_EQ(g_liveStreams, 0);
  }
  void TearDown() override { Close(); }

  HRESULT Add(std::wstring name) const { return host->compositor->AddByFileName(name.data()); }
  bool IsReplaced() const {
    short sample = 0;
    std::memcpy(&sample, host->Pull()->audio.pData, sizeof sample);
    return sample == kTrack;
  }
  /// Waits, but not for ever.
  static bool Soon(const std::function<bool()>& isTrue) {
    for (int i = 0; i < 20'000 && !isTrue(); ++i) std::this_thread::sleep_for(milliseconds(1));
    return isTrue();
  }
  bool IsReplacedSoon() const {
    return Soon([this] { return IsReplaced(); });
  }

  std::unique_ptr<Plan> plan;
  std::unique_ptr<Host> host;
  Ref<Noted<ScriptedStream>> input;
};

TEST(PathText, IsUtf8CutAtAWholeCharacter) {
  char out[kMaxPathBytes + 1];
  const auto text = [&out](const std::wstring& path) {
    return std::string(out, PathToUtf8(path.c_str(), out));
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
  const Host host;
  std::wstring name = L"track.wav";
  EXPECT_EQ(host.compositor->AddByFileName(name.data()), E_FAIL);
  EXPECT_EQ(host.compositor->AddByFileName(name.data()), E_FAIL) << "the name was not taken";
  EXPECT_EQ(host.compositor->AddByFileName(nullptr), E_POINTER);
}

TEST_F(LoaderTest, AddsTheFirstAudioStreamOfTheFirstProgramWhilePullsSeeksAndRemoveGoOn) {
  const std::wstring name = L"\x442\x440\x435\x43A \x1F3B5.flac";
  plan->holdsLoads = true;
  host->compositor->SetDelayTime(0.5);
  ASSERT_EQ(Add(name), S_OK);
  EXPECT_FALSE(IsReplaced());
  host->compositor->Remove();  // The load goes on.
  host->output->Seek(12.25, 4);
  plan->holdsLoads = false;
  EXPECT_TRUE(Soon([] { return Track::lastSeek == 11.75; }));
  EXPECT_TRUE(IsReplacedSoon());
  Close();
  EXPECT_EQ(plan->openedName, name);
  EXPECT_EQ(plan->decodedName, name);
  EXPECT_EQ(plan->selection, (Selection{52, 0, 7, 0x70005}));
  EXPECT_EQ(plan->opened, 2) << "the probe and the load";
  EXPECT_EQ(plan->released,
            (Log{"streams", "other", "stream", "stream", "program", "programs", "other", "program",
                 "media", "track", "name", "decoder", "manager", "input", "track", "input"}));
}

TEST_F(LoaderTest, TakesANameOnce) {
  g_refuseThreads = true;
  EXPECT_EQ(Add(L"a"), S_OK);
  g_refuseThreads = false;
  EXPECT_EQ(host->Now().load, LOAD_NO_THREAD);
  EXPECT_EQ(host->Diagnosis()->WaitForLoad(kWaitForever), S_OK);
  EXPECT_EQ(Add(L"a"), S_OK) << "taken, though no thread could be made";
  EXPECT_EQ(plan->opened, 1);
  EXPECT_EQ(Add(L"b"), S_OK);
  EXPECT_TRUE(IsReplacedSoon());
  EXPECT_EQ(host->compositor->Remove(), S_OK);
  EXPECT_FALSE(IsReplaced());
  EXPECT_EQ(Add(L"b"), S_OK);
  EXPECT_TRUE(IsReplacedSoon());
  plan->missing = "media";
  EXPECT_EQ(Add(L"bad"), E_INVALIDARG);
  EXPECT_EQ(Add(L"bad"), E_INVALIDARG) << "not taken";
  EXPECT_EQ(Add(L"b"), S_OK);
  EXPECT_EQ(plan->opened, 7);
  EXPECT_TRUE(IsReplaced());
}

TEST_F(LoaderTest, WhateverIsMissingEndsTheLoad) {
  for (const auto& [missing, decoded, isSelected, load] :
       {std::tuple("loader's manager", 0, false, LOAD_NO_MANAGER),
        {"media", 0, false, LOAD_NO_FILE},
        {"programs", 0, false, LOAD_NO_PROGRAM},
        {"program", 0, false, LOAD_NO_PROGRAM},
        {"item", 0, false, LOAD_NO_PROGRAM},
        {"streams", 1, false, LOAD_ADDED},
        {"stream", 1, false, LOAD_ADDED},
        {"decoder", 1, true, LOAD_NO_DECODER},
        {"track", 1, true, LOAD_NO_SOUND},
        {"channels", 1, true, LOAD_REFUSED}}) {
    SCOPED_TRACE(missing);
    Close();
    Open();
    plan->missing = missing;
    EXPECT_EQ(Add(L"x"), S_OK);
    EXPECT_EQ(host->Diagnosis()->WaitForLoad(20'000), S_OK);
    const SDiagnosis now = host->Now();
    EXPECT_TRUE(now.load == load && now.isLoading == 0 && now.loads == 1) << now.load;
    const bool isAdded = load == LOAD_ADDED;
    EXPECT_EQ(now.loadCode, isAdded ? S_OK : load == LOAD_REFUSED ? E_INVALIDARG : E_FAIL);
    EXPECT_EQ(IsReplaced(), isAdded);
    EXPECT_EQ(host->Now().pull, isAdded ? PULL_SOUND : PULL_PASSED_LOAD_FAILED);
    host->compositor->Remove();
    EXPECT_FALSE(IsReplaced());
    EXPECT_EQ(host->Now().pull, PULL_PASSED_NO_SOURCE);
    Close();
    EXPECT_EQ(plan->opened, plan->missing == "loader's manager" ? 1 : 2);
    EXPECT_EQ(plan->decoded, decoded);
    EXPECT_EQ(plan->selection, isSelected ? (Selection{52, 0, 7, 0x70005}) : Selection{});
    EXPECT_THAT(plan->released, testing::Contains("manager"));
    if (plan->opened == 2) {
      const auto place = [&](const char* what) { return std::ranges::find(plan->released, what); };
      EXPECT_LT(place("name"), place("manager"));
    }
  }
}

TEST_F(LoaderTest, ChecksNameANameThatIsNotLoadedAgain) {
  for (const bool isFailure : {false, true}) {
    int mistakes = 0;
    HostChecks checks(
        [](void* count, HostMistake mistake, const char*) {
          *static_cast<int*>(count) += mistake == HostMistake::kNotLoadedAgain ? 1 : 100;
        },
        &mistakes);
    const Ref<IAudioCompositor> checked = checks.Wrap(host->compositor.get());
    const auto add = [&](std::wstring name) {
      EXPECT_EQ(checked->AddByFileName(name.data()), S_OK);
      EXPECT_EQ(host->Diagnosis()->WaitForLoad(kWaitForever), S_OK);
    };
    if (isFailure) plan->missing = "decoder";
    add(isFailure ? L"bad" : L"good");
    add(L"other");
    EXPECT_EQ(mistakes, 0);
    if (!isFailure) checked->AddByMediaStream(MakeComponent<Track>().get());
    add(L"other");
    EXPECT_EQ(mistakes, 1);
    checked->Remove();
    add(L"other");
    EXPECT_EQ(mistakes, 1);
  }
}

TEST_F(LoaderTest, ALoadIsWaitedForAndReported) {
  std::vector<LOAD_RESULT> loads;
  std::atomic<int> begun = 0;
  const Ref<ICompositorDiagnosis> diagnosis = host->Diagnosis();
  Watch note;
  note = [&](DIAGNOSIS_EVENT event, const SDiagnosis& now) {
    if (event != DIAGNOSIS_LOAD_ENDED) return;
    EXPECT_EQ(++begun > 1 ? S_OK : Add(L"second"), S_OK);
    EXPECT_EQ(diagnosis->WaitForLoad(0), E_ZEL_STATE);
    EXPECT_EQ(begun != 3 ? S_FALSE : diagnosis->SetCallback(CallWatch, &note), S_FALSE);
    std::this_thread::sleep_for(milliseconds(30));
    loads.push_back(now.load);
  };
  EXPECT_EQ(diagnosis->SetCallback(CallWatch, &note), S_OK);
  plan->missing = "decoder";
  plan->holdsLoads = true;
  ASSERT_EQ(Add(L"first"), S_OK);
  EXPECT_EQ(host->Now().isLoading, 1);
  host->compositor->Remove();
  EXPECT_FALSE(IsReplaced());
  EXPECT_EQ(host->Now().pull, PULL_PASSED_LOADING);
  EXPECT_EQ(diagnosis->WaitForLoad(20), S_FALSE);
  plan->holdsLoads = false;
  EXPECT_EQ(diagnosis->WaitForLoad(kWaitForever), S_OK);
  EXPECT_THAT(loads, testing::ElementsAre(LOAD_NO_DECODER, LOAD_NO_DECODER));
  g_refuseThreads = true;
  EXPECT_EQ(Add(L"third"), S_OK);
  g_refuseThreads = false;
  EXPECT_EQ(loads.back(), LOAD_NO_THREAD);
  ASSERT_EQ(Add(L"fourth"), S_OK);
  ASSERT_TRUE(Soon([&] { return begun == 4; }));
  EXPECT_EQ(diagnosis->SetCallback(nullptr, nullptr), S_OK);
  EXPECT_EQ(loads.size(), 4U) << "waits for the callback";
}

TEST_F(LoaderTest, TheNextLoadANewInputAndTheEndWaitForALoad) {
  const auto pause = [] { std::this_thread::sleep_for(milliseconds(60)); };
  plan->whileLoading = [&] {
    pause();
    if (plan->decoded != 1) return;
    plan->holdsLoads = true;
    EXPECT_EQ(Add(L"third"), S_OK) << "on the loader's own thread";
    EXPECT_EQ(host->compositor->SetInputAudioStream(nullptr), E_ZEL_STATE);
  };
  ASSERT_EQ(Add(L"first"), S_OK);
  ASSERT_TRUE(Soon([&] { return plan->opened == 2; })) << "by the loader, too";
  ASSERT_EQ(Add(L"second"), S_OK);
  EXPECT_EQ(plan->decoded, 1);
  std::thread later([&] { Soon([&] { return plan->holdsLoads.exchange(false); }); });
  EXPECT_EQ(host->compositor->SetInputAudioStream(nullptr), S_FALSE);
  later.join();
  EXPECT_EQ(plan->decoded, 3);
  EXPECT_EQ(plan->decodedName, L"third");
  EXPECT_EQ(plan->released.rbegin()[1], "input");
  EXPECT_EQ(plan->released.back(), "track");
  ASSERT_EQ(Add(L"fourth"), S_OK);
  ASSERT_TRUE(Soon([&] { return plan->opened == 8; }));
  ASSERT_EQ(Add(L"fifth"), S_OK);
  EXPECT_GE(plan->decoded, 4);
  Close();
  EXPECT_EQ(plan->decoded, 5);
}

// A stream may add a file from inside a call, and so may another thread while that call lasts. The
// load that waits for the call to end must not be waited for.
TEST_F(LoaderTest, CallsFromInsideAStreamReturn) {
  const auto inside = [&] {
    input->onSample = input->onSeek = nullptr;
    plan->holdsLoads = false;  // From here on the load of "a" waits for this call.
    std::thread([&] { EXPECT_EQ(Add(L"b"), S_OK); }).join();
    EXPECT_EQ(Add(L"c"), S_OK);
    const HRESULT refused[] = {host->compositor->AddByMediaStream(input.get()),
                               host->compositor->Remove(),
                               host->compositor->SetInputAudioStream(nullptr)};
    EXPECT_THAT(refused, testing::Each(E_ZEL_STATE));
    EXPECT_EQ(host->output->GetSampleEx(), nullptr);
    EXPECT_EQ(host->output->Seek(1, 1), -1.0);
  };
  for (const bool isSeek : {false, true}) {
    plan->holdsLoads = true;
    ASSERT_EQ(Add(L"a"), S_OK);
    (isSeek ? input->onSeek : input->onSample) = inside;
    isSeek ? host->output->Seek(0, 1) : IsReplaced();
    EXPECT_TRUE(Soon([&] { return plan->LastDecoded() == L"c"; }));
    EXPECT_TRUE(IsReplacedSoon());
  }
}

// A call that was made without the lock counts as well.
TEST_F(LoaderTest, NoStreamIsDroppedInsideItsCall) {
  const auto drop = [&] { EXPECT_EQ(host->compositor->SetInputAudioStream(nullptr), E_ZEL_STATE); };
  input->onForward = input->onInfo = drop;
  EXPECT_EQ(host->output->Forward(), 7);
  EXPECT_EQ(host->compositor->AddByMediaStream(input.get()), S_OK);
  EXPECT_EQ(host->compositor->SetInputAudioStream(input.get()), S_OK);
  input->onForward = nullptr;
  input->onInfo = nullptr;
  EXPECT_EQ(host->compositor->SetInputAudioStream(nullptr), S_FALSE);
}

TEST_F(LoaderTest, TheEndInsideAStreamsCallIsAnError) {
  input->onSample = input->onForward = [this] { *host = {}; };
  EXPECT_DEATH(host->output->GetSampleEx(), "inside a stream's call");
  EXPECT_DEATH(host->output->Forward(), "inside a stream's call");
}

TEST_F(LoaderTest, PullingWhileOtherThreadsAddRemoveDelayAndSeek) {
  std::atomic<bool> stop = false;
  const auto use = [&](unsigned seed) {
    std::mt19937 random(seed);
    while (!stop) {
      Add(random() % 3 == 0 ? L"a" : L"b");
      if (seed != 0) continue;  // Two threads may add files at once.
      host->compositor->SetDelayTime(static_cast<double>(random() % 4) - 2);
      if (random() % 3 == 0) host->compositor->Remove();
      if (random() % 3 == 0) host->compositor->AddByMediaStream(MakeComponent<Track>().get());
      host->output->Seek(static_cast<double>(random() % 9), 1);
    }
  };
  std::thread threads[] = {std::thread(use, 0), std::thread(use, 1)};
  for (int i = 0; i < 2000; ++i) {
    const MEDIA_FRAME* frame = host->Pull();
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(frame->llPTS, i * 1'000'000LL) << "no frame of the input is lost";
    std::this_thread::yield();
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  Close();
  EXPECT_GT(plan->decoded, 1);
  EXPECT_EQ(g_unjoinedThreads, 0);
}

}  // namespace
}  // namespace zel::test

extern "C" {

ZEL_API HRESULT CreateScripted(const _GUID& clsid, IUnknown* outer, unsigned long context,
                               const _GUID& iid, void** out) {
  using namespace zel::test;
  EXPECT_TRUE(ZelIsEqualGUID(clsid, CLSID_CMediaDecoderMgr) && outer == nullptr && context == 0 &&
              ZelIsEqualGUID(iid, IID_IMediaDecoderMgr));
  if (g_plan->opened == 1 && g_plan->missing == "loader's manager") return E_FAIL;
  return Give<Manager>("manager", reinterpret_cast<IMediaDecoderMgr**>(out));
}

void __real_SysFreeString(wchar_t* text);
void __wrap_SysFreeString(wchar_t* text) {
  if (zel::test::g_plan != nullptr) zel::test::NoteRelease("name");
  __real_SysFreeString(text);
}

}  // extern "C"
