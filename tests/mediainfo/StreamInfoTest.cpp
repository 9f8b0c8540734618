#include <array>
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

/// A text that a stream has only with a record. A failure leaves `out` alone, or clears it.
template <class I>
void ExpectText(I& with, I& without, HRESULT (I::*get)(wchar_t**), const std::wstring& text,
                bool clears) {
  wchar_t old;
  wchar_t* out = &old;
  EXPECT_EQ((without.*get)(nullptr), E_POINTER);
  EXPECT_EQ((without.*get)(&out), E_FAIL);
  FailAllocationAfter(0);
  EXPECT_EQ((with.*get)(&out), E_OUTOFMEMORY);
  EXPECT_EQ(out, clears ? nullptr : &old);
  EXPECT_EQ((with.*get)(&out), S_OK);
  EXPECT_EQ(Take(out), text);
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
  EXPECT_EQ(std::tuple(with.GetAudioInfo(), with.GetVideoInfo(), with.GetVideoSrcInfo()),
            std::tuple(&held->audioInfo, &held->videoInfo, &held->videoSrcInfo));

  StreamInfo defaults = {};
  defaults.state = defaults.channelIndex = -1;
  defaults.reserved0 = defaults.sourceScanType = 2;
  ExpectAnswers(without, defaults);
  EXPECT_TRUE(!without.GetStreamInfo() && !without.GetAudioInfo() && !without.GetVideoInfo() &&
              !without.GetVideoSrcInfo() && !without.GetExtraData());
  defaults.id = 0xFFFFFFFF;
  ExpectAnswers(fresh, defaults);
  EXPECT_EQ(fresh.GetStreamInfo()->reserved0, 2);

  IStreamInfo &one = with, &none = without;
  ExpectText(one, none, &IStreamInfo::GetName, L"name", false);
  ExpectText(one, none, &IStreamInfo::GetDescription, std::wstring(128, L'd'), false);
  ExpectText(one, none, &IStreamInfo::GetLanguageDesc, L"\x4E2D\x1F600", false);
}

TEST_F(StreamInfoTest, OwnsCopiesOfItsRecordAndExtraData) {
  unsigned char data[] = {1, 2, 3, 4, 5};
  StreamInfo record = MakeRecord(data, 5);
  CStreamInfo stream;
  EXPECT_EQ(stream.SetStreamInfo(&record), 1);
  data[0] = 99;
  EXPECT_EQ(stream.SetStreamInfo(stream.GetStreamInfo()), 1) << "its own record";
  EXPECT_EQ(stream.SetStreamInfo(nullptr), 0);
  const auto set = [&] { return stream.SetStreamInfo(&record) == 1; };
  const auto expectOld = [&] {
    ASSERT_EQ(stream.GetExtraDataLength(), 5U);
    EXPECT_EQ(std::memcmp(stream.GetExtraData(), "\1\2\3\4\5", 5), 0);
  };
  EXPECT_EQ(FailEachAllocation(set, expectOld), 2);

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
  const auto add = [&](int type, std::uint64_t size, unsigned char* from) {
    return stream.AddExtraData(static_cast<STREAM_EXTRA_DATA_TYPE>(type),
                               static_cast<unsigned long>(size), from);
  };
  // The last one is 2^32 where sizes have 64 bits, and 0 elsewhere.
  EXPECT_EQ(add(7, 0, data) + add(7, 4, nullptr) + add(7, 1ULL << 32, data), 0);
  const StreamInfo record = MakeRecord();
  for (int i = 0; i < 3; ++i) {
    const auto expectOld = [&] { EXPECT_EQ(stream.GetExtraDataCount(), 0U + i); };
    EXPECT_EQ(FailEachAllocation([&] { return add(-i, 1U + i, data) == 1; }, expectOld), 3);
    stream.SetStreamInfo(&record);  // The blocks stay.
  }
  data[0] = 0;
  for (unsigned i = 0; i < 3; ++i) {
    const SStreamExtraData& entry = *stream.GetExtraData(i);
    EXPECT_EQ(entry.type, -static_cast<int>(i));
    EXPECT_EQ(std::string(entry.data, entry.data + entry.size), std::string("\12\13\14", i + 1));
  }
  for (const unsigned long end : {3UL, ULONG_MAX}) EXPECT_EQ(stream.GetExtraData(end), nullptr);
}

TEST_F(StreamInfoTest, SubpictureStreamsAnswerFromTheirRecordOrFixed) {
  CSubPicStreamInfo with, without(nullptr, nullptr);
  SubPicStreamInfo record{5, 6, 7, L"language", {}};
  std::wmemset(record.description, L'd', 157);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(with.SetSubPicStreamInfo(&record), S_OK);
  record.id = 66;
  EXPECT_EQ(with.SetSubPicStreamInfo(nullptr), E_POINTER);
  using Numbers = std::array<std::int64_t, 12>;
  const auto numbers = [](CSubPicStreamInfo& s) {
    EXPECT_TRUE(!s.GetVideoInfo() && !s.GetExtraData() && !s.GetSubPicStreamInfo());
    return Numbers{s.GetType(),
                   s.GetID(),
                   s.GetFourCC(),
                   s.GetStartPTS(),
                   s.GetPTSOffset(),
                   s.GetStreamDelay(),
                   s.GetFirstPacketPos(),
                   s.GetStreamPID(),
                   s.GetExtraDataLength(),
                   s.IsStreamSelected(),
                   s.IsLosslessProcess(),
                   s.GetChannelIndex()};
  };
  EXPECT_EQ(numbers(with), (Numbers{5, 6, 7}));
  EXPECT_EQ(numbers(without), Numbers{});
  ISubPicStreamInfo &one = with, &none = without;
  ExpectText(one, none, &ISubPicStreamInfo::GetLanguage, L"language", true);
  ExpectText(one, none, &ISubPicStreamInfo::GetDescription, std::wstring(157, L'd'), true);
}

TEST_F(StreamInfoTest, ExposesItsFaceAndForwardsToItsOwner) {
  ExpectFaces<IStreamInfo>(*zel::Ref<CStreamInfo>::Share(new CStreamInfo), IID_ISubPicStreamInfo);
  const auto outer = zel::Ref<CSubPicStreamInfo>::Share(new CSubPicStreamInfo);
  ExpectFaces<ISubPicStreamInfo>(*outer, IID_IStreamInfo);
  CStreamInfo inner(outer->GetOwner(), nullptr);
  IStreamInfo& face = inner;
  zel::Ref<IUnknown> found;
  EXPECT_EQ(face.QueryInterface(IID_ISubPicStreamInfo, found.ReceiveVoid()), S_OK);
  EXPECT_EQ(inner.NonDelegatingQueryInterface(IID_IStreamInfo, found.ReceiveVoid()), S_OK);
  EXPECT_EQ(outer->GetRefCount(), 2) << "references on the inner face are the outer object's";
  EXPECT_EQ(face.AddRef(), 3U);
  EXPECT_EQ(face.Release(), 2U);
  EXPECT_EQ(inner.GetRefCount(), 0);
}

TEST_F(StreamInfoTest, HasNoMetadataObjects) {
  EXPECT_EQ(CreateNewMetaData(), nullptr);
  MetaData_Info_Release(reinterpret_cast<MetaDataInfo*>(1));
}

}  // namespace
