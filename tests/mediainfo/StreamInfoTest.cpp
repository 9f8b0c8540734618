#include <climits>
#include <cstring>
#include <vector>

#include "tests/support/LeakCheck.h"
#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/mediainfo/MetaData.h"
#include "zel/mediainfo/StreamInfo.h"

namespace {

using StreamInfoTest = LeakCheck;
using Answers = std::vector<double>;

/// What a stream answers, in the order of its interface; texts and addresses left out.
Answers Ask(IStreamInfo& s) {
  const auto number = [](auto value) { return static_cast<double>(value); };
  return {number(s.GetType()),
          number(s.GetID()),
          number(s.GetFourCC()),
          number(s.GetState()),
          s.GetLength(),
          number(s.GetBitRate()),
          number(s.GetStartPTS()),
          number(s.GetPTSOffset()),
          number(s.GetSourceScanType()),
          number(s.GetStreamPID()),
          number(s.IsStreamSelected()),
          number(s.IsLosslessProcess()),
          number(s.GetChannelIndex()),
          number(s.GetStreamDelay()),
          number(s.GetExtraDataLength()),
          number(s.GetFirstPacketPos()),
          number(s.GetStreamIndex()),
          number(s.GetExtraDataCount()),
          number(s.GetLosslessCapacity()),
          number(s.GetProfileValue()),
          number(s.GetLevelValue()),
          number(s.GetMaxBFrames())};
}

StreamInfo MakeRecord() {
  StreamInfo r{};
  r.type = 3;
  r.id = 0x00010002;
  r.streamIndex = 4;
  r.fourCC = 5;
  r.state = 6;
  std::wcscpy(r.name, L"name");
  std::wmemset(r.description, L'd', 128);  // Without a terminator.
  std::wcscpy(r.languageDesc, L"\x4E2D\x1F600");
  r.length = 1.5;
  r.bitRate = 0xFFFFFFFF;
  r.startPTS = 1LL << 40;
  r.ptsOffset = -(1LL << 41);
  r.sourceScanType = 9;
  r.streamPID = 10;
  r.firstPacketPos = 1LL << 42;
  r.selected = 11;
  r.losslessProcess = 12;
  r.channelIndex = 13;
  r.losslessCapacity = 14;
  r.profileValue = 15;
  r.levelValue = 16;
  r.maxBFrames = 17;
  return r;
}

TEST_F(StreamInfoTest, AnswersFromItsRecordOrWithoutOne) {
  const StreamInfo record = MakeRecord();
  long result = 17;
  CStreamInfo fresh, with(nullptr, &result), without(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(with.SetStreamInfo(&record), 1);
  EXPECT_EQ(Ask(fresh),
            (Answers{0, 0xFFFFFFFF, 0, -1, 0, 0, 0, 0, 2, 0, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Ask(without),
            (Answers{0, 0, 0, -1, 0, 0, 0, 0, 2, 0, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Ask(with),
            (Answers{3,  0x10002, 5,       6, 1.5,    0xFFFFFFFF, 0x1p40, -0x1p41, 9,  10, 11,
                     12, 13,      -0x1p41, 0, 0x1p42, 4,          0,      14,      15, 16, 17}));
  StreamInfo* held = with.GetStreamInfo();
  EXPECT_EQ(std::memcmp(held, &record, sizeof(record)), 0);
  EXPECT_EQ(fresh.GetStreamInfo()->reserved0, 2);
  EXPECT_EQ(with.GetAudioInfo(), &held->audioInfo);
  EXPECT_EQ(with.GetVideoInfo(), &held->videoInfo);
  EXPECT_EQ(with.GetVideoSrcInfo(), &held->videoSrcInfo);
  const void* const none = nullptr;
  for (const void* pointer : {static_cast<const void*>(without.GetStreamInfo()),
                              static_cast<const void*>(without.GetAudioInfo()),
                              static_cast<const void*>(without.GetVideoInfo()),
                              static_cast<const void*>(without.GetVideoSrcInfo()),
                              static_cast<const void*>(without.GetExtraData())}) {
    EXPECT_EQ(pointer, none);
  }

  struct Case {
    HRESULT (IStreamInfo::*get)(wchar_t**);
    std::wstring text;
  };
  for (const auto& [get, text] : {Case{&IStreamInfo::GetName, L"name"},
                                  Case{&IStreamInfo::GetDescription, std::wstring(128, L'd')},
                                  Case{&IStreamInfo::GetLanguageDesc, L"\x4E2D\x1F600"}}) {
    wchar_t untouched;
    wchar_t* out = &untouched;
    EXPECT_EQ((without.*get)(&out), E_FAIL);
    EXPECT_EQ(out, &untouched);
    EXPECT_EQ((with.*get)(nullptr), E_POINTER);
    EXPECT_EQ((without.*get)(nullptr), E_POINTER);
    FailAllocationAfter(0);
    EXPECT_EQ((with.*get)(&out), E_OUTOFMEMORY);
    EXPECT_EQ((with.*get)(&out), S_OK);
    EXPECT_EQ(Take(out), text);
  }
}

TEST_F(StreamInfoTest, OwnsCopiesOfItsRecordAndExtraData) {
  unsigned char data[] = {1, 2, 3, 4, 5};
  StreamInfo record = MakeRecord();
  record.extraData = data;
  record.extraDataLength = 5;
  CStreamInfo stream;
  EXPECT_EQ(stream.SetStreamInfo(&record), 1);
  data[0] = 99;
  EXPECT_EQ(stream.SetStreamInfo(stream.GetStreamInfo()), 1) << "its own record";
  EXPECT_EQ(stream.SetStreamInfo(nullptr), 0);
  EXPECT_EQ(FailEachAllocation([&] { return stream.SetStreamInfo(&record) == 1; },
                               [&] {
                                 ASSERT_EQ(stream.GetExtraDataLength(), 5U);
                                 EXPECT_EQ(std::memcmp(stream.GetExtraData(), "\1\2\3\4\5", 5), 0);
                               }),
            2);

  // One byte is data; a length without data is none, and neither is data without a length.
  for (auto [bytes, length, kept] : {std::tuple(data, 1U, 1U), std::tuple(data, 0U, 0U),
                                     std::tuple(static_cast<unsigned char*>(nullptr), ~0U, 0U)}) {
    record.extraData = bytes;
    record.extraDataLength = length;
    stream.SetStreamInfo(&record);
    EXPECT_EQ(stream.GetExtraDataLength(), kept);
    EXPECT_EQ(stream.GetExtraData() != nullptr, kept != 0);
  }
}

TEST_F(StreamInfoTest, KeepsTypedBlocksInOrder) {
  CStreamInfo stream(nullptr, nullptr);
  unsigned char data[] = {10, 11, 12};
  const auto type = [](int value) { return static_cast<STREAM_EXTRA_DATA_TYPE>(value); };
  EXPECT_EQ(stream.GetExtraData(0UL), nullptr);
  for (unsigned i = 0; i < 2; ++i) {
    EXPECT_EQ(stream.AddExtraData(type(-static_cast<int>(i)), i + 1, data), 1);
  }
  EXPECT_EQ(stream.AddExtraData(type(7), 0, data), 0);
  EXPECT_EQ(stream.AddExtraData(type(7), 4, nullptr), 0);
#if ULONG_MAX > 0xFFFFFFFF
  EXPECT_EQ(stream.AddExtraData(type(7), 1UL << 32, data), 0);
#endif
  EXPECT_EQ(FailEachAllocation([&] { return stream.AddExtraData(type(-2), 3, data) == 1; },
                               [&] { EXPECT_EQ(stream.GetExtraDataCount(), 2U); }),
            3);
  data[0] = 0;
  const StreamInfo record = MakeRecord();
  stream.SetStreamInfo(&record);  // The blocks stay.
  ASSERT_EQ(stream.GetExtraDataCount(), 3U);
  for (unsigned i = 0; i < 3; ++i) {
    const SStreamExtraData* entry = stream.GetExtraData(i);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->type, -static_cast<int>(i));
    EXPECT_EQ(std::string(entry->data, entry->data + entry->size), std::string("\12\13\14", i + 1));
  }
  EXPECT_EQ(stream.GetExtraData(3), nullptr);
  EXPECT_EQ(stream.GetExtraData(ULONG_MAX), nullptr);
}

TEST_F(StreamInfoTest, SubpictureStreamsAnswerFromTheirRecordOrFixed) {
  CSubPicStreamInfo stream, aggregating(nullptr, nullptr);
  for (const auto get : {&ISubPicStreamInfo::GetLanguage, &ISubPicStreamInfo::GetDescription}) {
    for (CSubPicStreamInfo* without : {&stream, &aggregating}) {
      auto* text = reinterpret_cast<wchar_t*>(8);
      EXPECT_EQ((without->*get)(&text), E_FAIL);
      EXPECT_EQ(text, nullptr);
      EXPECT_EQ((without->*get)(nullptr), E_POINTER);
    }
  }
  const auto identity = [](ISubPicStreamInfo& s) {
    return std::vector<std::uint32_t>{static_cast<std::uint32_t>(s.GetType()), s.GetID(),
                                      s.GetFourCC()};
  };
  EXPECT_EQ(identity(stream), (std::vector<std::uint32_t>{0, 0, 0}));

  SubPicStreamInfo record{5, 6, 7, L"language", {}};
  std::wmemset(record.description, L'd', 157);
  EXPECT_EQ(stream.SetSubPicStreamInfo(&record), S_OK);
  record.id = 66;
  EXPECT_EQ(stream.SetSubPicStreamInfo(nullptr), E_POINTER);
  ISubPicStreamInfo& face = stream;
  EXPECT_EQ(identity(face), (std::vector<std::uint32_t>{5, 6, 7}));
  wchar_t* text = nullptr;
  EXPECT_EQ(face.GetLanguage(&text), S_OK);
  EXPECT_EQ(Take(text), L"language");
  EXPECT_EQ(face.GetDescription(&text), S_OK);
  EXPECT_EQ(Take(text), std::wstring(157, L'd'));
  EXPECT_EQ(face.GetVideoInfo(), nullptr);
  EXPECT_EQ(face.GetExtraData(), nullptr);
  EXPECT_EQ(stream.GetSubPicStreamInfo(), nullptr);
  EXPECT_EQ((Answers{static_cast<double>(face.GetStartPTS() | face.GetPTSOffset() |
                                         face.GetStreamDelay() | face.GetFirstPacketPos()),
                     static_cast<double>(face.GetStreamPID() | face.GetExtraDataLength()),
                     static_cast<double>(face.IsStreamSelected() | face.IsLosslessProcess() |
                                         face.GetChannelIndex())}),
            (Answers{0, 0, 0}));
}

/// Counts the questions that an inner object forwards.
struct Outer : scombase::CUnknown {
  Outer() : CUnknown(nullptr) {}
  int lookups = 0;
  HRESULT NonDelegatingQueryInterface(const _GUID& id, void** ppv) override {
    ++lookups;
    return CUnknown::NonDelegatingQueryInterface(id, ppv);
  }
};

template <class C, class I>
void ExpectOneFace(const _GUID& own, const _GUID& other) {
  const auto object = zel::Ref<C>::Share(new C);
  zel::Ref<I> face;
  ASSERT_EQ(object->QueryInterface(own, face.ReceiveVoid()), S_OK);
  EXPECT_EQ(face.get(), static_cast<I*>(object.get()));
  EXPECT_EQ(object->GetRefCount(), 2);
  void* none = &face;
  EXPECT_EQ(object->QueryInterface(other, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(object->QueryInterface(own, nullptr), E_POINTER);
}

TEST_F(StreamInfoTest, ExposesItsFaceAndForwardsToItsOwner) {
  ExpectOneFace<CStreamInfo, IStreamInfo>(IID_IStreamInfo, IID_ISubPicStreamInfo);
  ExpectOneFace<CSubPicStreamInfo, ISubPicStreamInfo>(IID_ISubPicStreamInfo, IID_IStreamInfo);
  Outer outer;
  CStreamInfo inner(outer.GetOwner(), nullptr);
  outer.NonDelegatingAddRef();
  IStreamInfo& face = inner;
  void* found = nullptr;
  EXPECT_EQ(face.AddRef(), 2U);
  EXPECT_EQ(face.QueryInterface(IID_IStreamInfo, &found), E_NOINTERFACE);
  EXPECT_EQ(outer.lookups, 1);
  ASSERT_EQ(inner.NonDelegatingQueryInterface(IID_IStreamInfo, &found), S_OK);
  EXPECT_EQ(outer.GetRefCount(), 3);
  EXPECT_EQ(face.Release(), 2U);
  EXPECT_EQ(inner.GetRefCount(), 0);
}

TEST_F(StreamInfoTest, HasNoMetadataObjects) {
  EXPECT_EQ(CreateNewMetaData(), nullptr);
  MetaData_Info_Release(nullptr);
  MetaData_Info_Release(reinterpret_cast<MetaDataInfo*>(1));
}

}  // namespace
