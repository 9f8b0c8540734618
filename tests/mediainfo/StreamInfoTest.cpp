#include <climits>
#include <cstring>
#include <tuple>

#include "tests/support/Faces.h"
#include "tests/support/LeakCheck.h"
#include "zel/mediainfo/MetaData.h"
#include "zel/mediainfo/StreamInfo.h"

namespace {

using StreamInfoTest = LeakCheck;

/// Every number that a stream answers is the record's.
void ExpectAnswers(IStreamInfo& s, const StreamInfo& r) {
  const auto answers = std::tuple(
      s.GetLength(), s.GetType(), s.GetID(), s.GetFourCC(), s.GetState(), s.GetBitRate(),
      s.GetStartPTS(), s.GetPTSOffset(), s.GetStreamDelay(), s.GetSourceScanType(),
      s.GetStreamPID(), s.IsStreamSelected(), s.IsLosslessProcess(), s.GetChannelIndex(),
      s.GetExtraDataLength(), s.GetFirstPacketPos(), s.GetStreamIndex(), s.GetLosslessCapacity(),
      s.GetProfileValue(), s.GetLevelValue(), s.GetMaxBFrames());
  const auto fields =
      std::tuple(r.length, r.type, r.id, r.fourCC, r.state, r.bitRate, r.startPTS, r.ptsOffset,
                 r.ptsOffset, r.sourceScanType, r.streamPID, r.selected, r.losslessProcess,
                 r.channelIndex, r.extraDataLength, r.firstPacketPos, r.streamIndex,
                 r.losslessCapacity, r.profileValue, r.levelValue, r.maxBFrames);
  EXPECT_EQ(answers, fields);
}

/// A record whose numbers all differ.
StreamInfo MakeRecord(unsigned char* extraData = nullptr, std::uint32_t length = 0) {
  StreamInfo r;
  auto* bytes = reinterpret_cast<unsigned char*>(&r);
  for (std::size_t i = 0; i < sizeof(r); ++i) {
    bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
  }
  std::wcscpy(r.name, L"name");
  std::wmemset(r.description, L'd', 128);  // Without a terminator.
  std::wcscpy(r.languageDesc, L"\x4E2D\x1F600");
  r.length = 1.5;
  r.extraData = extraData;
  r.extraDataLength = length;
  return r;
}

TEST_F(StreamInfoTest, AnswersFromItsRecordOrWithoutOne) {
  const StreamInfo record = MakeRecord();
  long result = 17;
  CStreamInfo fresh, with(nullptr, &result), without(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(with.SetStreamInfo(&record), 1);
  StreamInfo* const held = with.GetStreamInfo();
  EXPECT_EQ(std::memcmp(held, &record, sizeof(record)), 0);
  ExpectAnswers(with, record);
  EXPECT_EQ(with.GetAudioInfo(), &held->audioInfo);
  EXPECT_EQ(with.GetVideoInfo(), &held->videoInfo);
  EXPECT_EQ(with.GetVideoSrcInfo(), &held->videoSrcInfo);

  StreamInfo defaults = {};
  defaults.state = defaults.channelIndex = -1;
  defaults.reserved0 = defaults.sourceScanType = 2;
  ExpectAnswers(without, defaults);
  EXPECT_TRUE(!without.GetStreamInfo() && !without.GetAudioInfo() && !without.GetVideoInfo() &&
              !without.GetVideoSrcInfo() && !without.GetExtraData());
  defaults.id = 0xFFFFFFFF;
  ExpectAnswers(fresh, defaults);
  EXPECT_EQ(fresh.GetStreamInfo()->reserved0, 2);

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
    EXPECT_EQ((without.*get)(nullptr), E_POINTER);
    FailAllocationAfter(0);
    EXPECT_EQ((with.*get)(&out), E_OUTOFMEMORY);
    EXPECT_EQ(out, &untouched);
    EXPECT_EQ((with.*get)(&out), S_OK);
    EXPECT_EQ(Take(out), text);
  }
}

TEST_F(StreamInfoTest, OwnsCopiesOfItsRecordAndExtraData) {
  unsigned char data[] = {1, 2, 3, 4, 5};
  StreamInfo record = MakeRecord(data, 5);
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
  for (const auto& [from, kept] :
       {std::pair(MakeRecord(data, 1), 1U), std::pair(MakeRecord(data, 0), 0U),
        std::pair(MakeRecord(nullptr, ~0U), 0U)}) {
    stream.SetStreamInfo(&from);
    EXPECT_EQ(stream.GetExtraDataLength(), kept);
    EXPECT_EQ(stream.GetExtraData() != nullptr, kept != 0);
  }
}

TEST_F(StreamInfoTest, KeepsTypedBlocksInOrder) {
  CStreamInfo stream(nullptr, nullptr);
  unsigned char data[] = {10, 11, 12};
  const auto add = [&](int type, unsigned long size, unsigned char* from) {
    return stream.AddExtraData(static_cast<STREAM_EXTRA_DATA_TYPE>(type), size, from);
  };
  EXPECT_EQ(stream.GetExtraData(0UL), nullptr);
  EXPECT_EQ(add(7, 0, data), 0);
  EXPECT_EQ(add(7, 4, nullptr), 0);
#if ULONG_MAX > 0xFFFFFFFF
  EXPECT_EQ(add(7, 1UL << 32, data), 0);
#endif
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(FailEachAllocation([&] { return add(-static_cast<int>(i), i + 1, data) == 1; },
                                 [&] { EXPECT_EQ(stream.GetExtraDataCount(), i); }),
              3);
  }
  data[0] = 0;
  const StreamInfo record = MakeRecord();
  stream.SetStreamInfo(&record);  // The blocks stay.
  ASSERT_EQ(stream.GetExtraDataCount(), 3U);
  for (unsigned i = 0; i < 3; ++i) {
    const SStreamExtraData& entry = *stream.GetExtraData(i);
    EXPECT_EQ(entry.type, -static_cast<int>(i));
    EXPECT_EQ(std::string(entry.data, entry.data + entry.size), std::string("\12\13\14", i + 1));
  }
  for (const unsigned long end : {3UL, ULONG_MAX}) EXPECT_EQ(stream.GetExtraData(end), nullptr);
}

TEST_F(StreamInfoTest, SubpictureStreamsAnswerFromTheirRecordOrFixed) {
  CSubPicStreamInfo stream, aggregating(nullptr, nullptr);
  const auto expectNumbers = [&](int type, unsigned id, unsigned fourCC) {
    EXPECT_EQ(std::tuple(stream.GetType(), stream.GetID(), stream.GetFourCC()),
              std::tuple(type, id, fourCC));
    EXPECT_EQ(stream.GetStartPTS() | stream.GetPTSOffset() | stream.GetStreamDelay() |
                  stream.GetFirstPacketPos() | stream.GetStreamPID() | stream.GetExtraDataLength() |
                  stream.IsStreamSelected() | stream.IsLosslessProcess() | stream.GetChannelIndex(),
              0);
    EXPECT_TRUE(!stream.GetVideoInfo() && !stream.GetExtraData() && !stream.GetSubPicStreamInfo());
  };
  expectNumbers(0, 0, 0);
  SubPicStreamInfo record{5, 6, 7, L"language", {}};
  std::wmemset(record.description, L'd', 157);
  constexpr HRESULT (ISubPicStreamInfo::*kTexts[])(wchar_t**) = {
      &ISubPicStreamInfo::GetLanguage, &ISubPicStreamInfo::GetDescription};
  for (const auto get : kTexts) {
    for (CSubPicStreamInfo* without : {&stream, &aggregating}) {
      auto* text = reinterpret_cast<wchar_t*>(8);
      EXPECT_EQ((without->*get)(&text), E_FAIL);
      EXPECT_EQ(text, nullptr);
      EXPECT_EQ((without->*get)(nullptr), E_POINTER);
    }
  }
  EXPECT_EQ(stream.SetSubPicStreamInfo(&record), S_OK);
  record.id = 66;
  EXPECT_EQ(stream.SetSubPicStreamInfo(nullptr), E_POINTER);
  expectNumbers(5, 6, 7);
  for (const auto get : kTexts) {
    wchar_t* text = nullptr;
    EXPECT_EQ((stream.*get)(&text), S_OK);
    EXPECT_EQ(Take(text), get == kTexts[0] ? L"language" : std::wstring(157, L'd'));
  }
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

TEST_F(StreamInfoTest, ExposesItsFaceAndForwardsToItsOwner) {
  ExpectFaces<IStreamInfo>(*zel::Ref<CStreamInfo>::Share(new CStreamInfo), IID_ISubPicStreamInfo);
  ExpectFaces<ISubPicStreamInfo>(*zel::Ref<CSubPicStreamInfo>::Share(new CSubPicStreamInfo),
                                 IID_IStreamInfo);
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
  MetaData_Info_Release(reinterpret_cast<MetaDataInfo*>(1));
}

}  // namespace
