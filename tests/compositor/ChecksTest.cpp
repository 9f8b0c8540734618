// Every mistake that a host can make is named, and a host without one hears nothing.
#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <optional>
#include <thread>

#include "tests/compositor/ScriptedStream.h"
#include "zel/compositor/Checks.h"

namespace zel::test {
namespace {

/// A host that uses a wrapped compositor.
struct CheckedHost {
  static void Note(void* host, HostMistake mistake, const char* text) {
    static_cast<CheckedHost*>(host)->mistakes.push_back(mistake);
    EXPECT_NE(std::strchr(text, ':'), nullptr) << text;
  }
  CheckedHost() {
    const Ref<CAudioCompositor> made = MakeComponent<CAudioCompositor>(nullptr, nullptr);
    compositor = checks->Wrap(made.get());
    compositor->GetOutPutAudioStream(output.Receive());
    compositor->SetInputAudioStream(input.get());
    compositor->AddByMediaStream(track.get());
  }
  ~CheckedHost() { End(); }
  CZelSample* Pull() const {
    IMediaStream* const pulled = output.get();  // Which may be released meanwhile.
    pulled->Forward();
    return pulled->GetSampleEx();
  }
  void End() {
    output = nullptr;
    compositor = nullptr;
  }
  /// Pulls with `block` as the first one of the input, or of the track.
  void PullBlock(Block block, bool isInput) {
    const auto script = [block](long n) { return n == 0 ? block : Block{}; };
    const auto stream = MakeComponent<ScriptedStream>("x", nullptr, script);
    isInput ? compositor->SetInputAudioStream(stream.get())
            : compositor->AddByMediaStream(stream.get());
    stream->position = -1;
    Pull();
    Pull();
    compositor->SetInputAudioStream(nullptr);
  }
  void InsideAPull(std::function<void()> call) {
    input->onSample = std::move(call);
    Pull();
    input->onSample = nullptr;
  }

  std::vector<HostMistake> mistakes;
  std::optional<HostChecks> checks{std::in_place, Note, this};
  Ref<ScriptedStream> input = MakeComponent<ScriptedStream>("in");
  Ref<ScriptedStream> track = MakeComponent<ScriptedStream>("src");
  Ref<IAudioCompositor> compositor;
  Ref<IMediaStream> output;
};

TEST(HostChecks, NameEachMistake) {
  using H = CheckedHost;
  const std::tuple<HostMistake, const char*, std::function<void(H&)>> rows[] = {
      {HostMistake::kNoData, "track", [](H& h) { h.PullBlock({.hasData = false}, false); }},
      {HostMistake::kNoData, "input", [](H& h) { h.PullBlock({.hasData = false}, true); }},
      {HostMistake::kNegativeSize, "", [](H& h) { h.PullBlock({.bytes = -2}, true); }},
      {HostMistake::kNotAudio, "",
       [](H& h) { h.PullBlock({.streamType = AV_STREAM_VIDEO}, false); }},
      {HostMistake::kNotPcm16, "", [](H& h) { h.PullBlock({.bits = 24}, false); }},
      {HostMistake::kOtherFormat, "rate", [](H& h) { h.PullBlock({.rate = 48000}, true); }},
      {HostMistake::kOtherFormat, "channels", [](H& h) { h.PullBlock({.channels = 1}, true); }},
      {HostMistake::kNoTime, "", [](H& h) { h.PullBlock({.pts = -1}, true); }},
      {HostMistake::kChannels, "", [](H& h) { h.PullBlock({.channels = 9}, false); }},
      {HostMistake::kSizeBeyondBuffer, "",
       [](H& h) { h.PullBlock({.bytes = 4096, .isBufferShort = true}, false); }},
      {HostMistake::kEmptyBlocks, "",
       [](H& h) {
         const auto script = [](long n) { return Block{.bytes = n < 2000 ? 0 : 4096}; };
         h.compositor->AddByMediaStream(MakeComponent<ScriptedStream>("x", nullptr, script).get());
         h.Pull();
       }},
      {HostMistake::kNoInput, "none",
       [](H& h) {
         h.compositor->SetInputAudioStream(nullptr);
         h.Pull();
       }},
      {HostMistake::kNoInput, "no description",
       [](H& h) {
         h.input->infoResult = E_FAIL;
         h.compositor->SetInputAudioStream(h.input.get());
         h.Pull();
       }},
      {HostMistake::kNullArgument, "", [](H& h) { h.compositor->AddByMediaStream(nullptr); }},
      {HostMistake::kNullArgument, "", [](H& h) { h.compositor->AddByFileName(nullptr); }},
      {HostMistake::kNullArgument, "", [](H& h) { h.compositor->GetOutPutAudioStream(nullptr); }},
      {HostMistake::kNullArgument, "", [](H& h) { h.output->GetStreamInfo(nullptr); }},
      {HostMistake::kOwnOutput, "source",
       [](H& h) { EXPECT_EQ(h.compositor->AddByMediaStream(h.output.get()), E_INVALIDARG); }},
      {HostMistake::kOwnOutput, "input",
       [](H& h) { EXPECT_EQ(h.compositor->SetInputAudioStream(h.output.get()), E_INVALIDARG); }},
      {HostMistake::kInsideCall, "a new input",
       [](H& h) { h.InsideAPull([&] { h.compositor->SetInputAudioStream(nullptr); }); }},
      {HostMistake::kInsideCall, "a new track",
       [](H& h) { h.InsideAPull([&] { h.compositor->AddByMediaStream(h.track.get()); }); }},
      {HostMistake::kInsideCall, "remove",
       [](H& h) { h.InsideAPull([&] { h.compositor->Remove(); }); }},
      {HostMistake::kInsideCall, "pull",
       [](H& h) { h.InsideAPull([&] { h.output->GetSampleEx(); }); }},
      {HostMistake::kInsideCall, "seek",
       [](H& h) { h.InsideAPull([&] { h.output->Seek(1, 1); }); }},
      {HostMistake::kInsideCall, "the end", [](H& h) { h.InsideAPull([&] { h.End(); }); }},
      {HostMistake::kTwoThreads, "the end",
       [](H& h) { h.InsideAPull([&] { std::thread([&] { h.End(); }).join(); }); }},
      {HostMistake::kTwoThreads, "controls",
       [](H& h) {
         h.track->onInfo = [&] { std::thread([&] { h.compositor->Remove(); }).join(); };
         h.compositor->AddByMediaStream(h.track.get());
         h.track->onInfo = nullptr;
       }},
      {HostMistake::kTwoThreads, "pulls",
       [](H& h) { h.InsideAPull([&] { std::thread([&] { h.output->Forward(); }).join(); }); }},
      {HostMistake::kTwoThreads, "a new input",
       [](H& h) {
         h.track->onInfo = [&] {
           std::thread([&] { h.compositor->SetInputAudioStream(nullptr); }).join();
         };
         h.compositor->AddByMediaStream(h.track.get());
         h.track->onInfo = nullptr;
       }},
      {HostMistake::kBorrowedSample, "kept",
       [](H& h) {
         const auto sample = Ref<CZelSample>::Share(h.Pull());
         h.output->Forward();
       }},
      {HostMistake::kBorrowedSample, "released",
       [](H& h) {
         h.Pull()->Release();
         h.Pull();
       }},
      {HostMistake::kAfterRelease, "a call",
       [](H& h) {
         IMediaStream* output = h.output.Detach();
         output->Release();
         h.compositor = nullptr;
         EXPECT_EQ(output->GetSampleEx(), nullptr);
       }},
      {HostMistake::kAfterRelease, "a Release",
       [](H& h) {
         h.output = nullptr;
         IAudioCompositor* compositor = h.compositor.Detach();
         EXPECT_EQ(compositor->Release(), 0U);
         EXPECT_EQ(compositor->Release(), 0U);
       }},
      {HostMistake::kAliveAtEnd, "", [](H& h) { h.checks.reset(); }},
  };
  for (const auto& [mistake, what, make] : rows) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(mistake) << ' ' << what);
    std::vector<HostMistake> seen;
    {
      CheckedHost host;
      make(host);
      seen = host.mistakes;
    }
    EXPECT_THAT(seen, testing::ElementsAre(mistake));
    EXPECT_EQ(g_liveStreams, 0) << "all was released in the end";
  }
}

TEST(HostChecks, SayNothingOfAHostThatMakesNone) {
  CheckedHost host;
  host.compositor->SetDelayTime(0.1);
  host.InsideAPull([&] {
    host.compositor->SetDelayTime(0.2);
    std::thread([&] { host.compositor->GetDelayTime(); }).join();
  });
  for (int i = 0; i < 20; ++i) ASSERT_NE(host.Pull(), nullptr);
  EXPECT_EQ(host.output->Seek(1, 1), 1.25);
  Ref<IStreamInfo> info;
  EXPECT_EQ(host.output->GetStreamInfo(info.Receive()), S_OK);
  EXPECT_TRUE(scombase::IsEqualObject(host.output.get(), host.compositor.get()));
  host.compositor->Remove();
  EXPECT_NE(host.Pull(), nullptr);
  host.End();
  host.checks.reset();
  EXPECT_THAT(host.mistakes, testing::IsEmpty());
}

TEST(HostChecks, WriteToStandardErrorWithoutACallback) {
  testing::internal::CaptureStderr();
  HostChecks checks;
  const Ref<CAudioCompositor> made = MakeComponent<CAudioCompositor>(nullptr, nullptr);
  checks.Wrap(made.get())->AddByMediaStream(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "host mistake: compositor: AddByMediaStream of null\n");
}

}  // namespace
}  // namespace zel::test
