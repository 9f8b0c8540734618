#include <climits>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/mediainfo/LeakCheck.h"
#include "zel/base/Ids.h"
#include "zel/mediainfo/MetaData.h"
#include "zel/mediainfo/StreamInfo.h"

namespace {

using StreamInfoTest = LeakCheck;

StreamInfo MakeRecord() {
  StreamInfo r{};
  r.type = 3;
  r.id = 0x00010002;
  r.streamIndex = 4;
  r.fourCC = 0x6134706D;
  r.state = 6;
  std::wcscpy(r.name, L"name");
  std::wcscpy(r.description, L"description");
  std::wcscpy(r.languageDesc, L"\x4E2D\x1F600");
  r.length = 1.5;
  r.bitRate = 0xFFFFFFFF;
  r.startPTS = 1LL << 40;
  r.ptsOffset = -(1LL << 41);
  r.sourceScanType = 9;
  r.streamPID = 0x1011;
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
  using Get = double (*)(IStreamInfo&);
#define GETTER(name) #name, [](IStreamInfo & s) { return static_cast<double>(s.name()); }
  struct Case {
    const char* name;
    Get get;
    double fresh, with, without;
  };
  const Case cases[] = {
      {GETTER(GetType), 0, 3, 0},
      {GETTER(GetID), 0xFFFFFFFF, 0x00010002, 0},
      {GETTER(GetFourCC), 0, 0x6134706D, 0},
      {GETTER(GetState), -1, 6, -1},
      {GETTER(GetLength), 0, 1.5, 0},
      {GETTER(GetBitRate), 0, 0xFFFFFFFF, 0},
      {GETTER(GetStartPTS), 0, static_cast<double>(1LL << 40), 0},
      {GETTER(GetPTSOffset), 0, static_cast<double>(-(1LL << 41)), 0},
      {GETTER(GetSourceScanType), 2, 9, 2},
      {GETTER(GetStreamPID), 0, 0x1011, 0},
      {GETTER(IsStreamSelected), 0, 11, 0},
      {GETTER(IsLosslessProcess), 0, 12, 0},
      {GETTER(GetChannelIndex), -1, 13, -1},
      {GETTER(GetStreamDelay), 0, static_cast<double>(-(1LL << 41)), 0},
      {GETTER(GetExtraDataLength), 0, 0, 0},
      {GETTER(GetFirstPacketPos), 0, static_cast<double>(1LL << 42), 0},
      {GETTER(GetStreamIndex), 0, 4, 0},
      {GETTER(GetExtraDataCount), 0, 0, 0},
      {GETTER(GetLosslessCapacity), 0, 14, 0},
      {GETTER(GetProfileValue), 0, 15, 0},
      {GETTER(GetLevelValue), 0, 16, 0},
      {GETTER(GetMaxBFrames), 0, 17, 0},
  };
#undef GETTER
  const StreamInfo record = MakeRecord();
  long result = 17;
  CStreamInfo fresh, with(nullptr, &result), without(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(with.SetStreamInfo(&record), 1);
  for (const Case& c : cases) {
    EXPECT_EQ(c.get(fresh), c.fresh) << c.name;
    EXPECT_EQ(c.get(with), c.with) << c.name;
    EXPECT_EQ(c.get(without), c.without) << c.name;
  }
  EXPECT_EQ(fresh.GetStreamInfo()->reserved0, 2);
  StreamInfo* held = with.GetStreamInfo();
  EXPECT_EQ(std::memcmp(held, &record, sizeof(record)), 0);
  EXPECT_EQ(with.GetAudioInfo(), &held->audioInfo);
  EXPECT_EQ(with.GetVideoInfo(), &held->videoInfo);
  EXPECT_EQ(with.GetVideoSrcInfo(), &held->videoSrcInfo);
  EXPECT_EQ(without.GetStreamInfo(), nullptr);
  EXPECT_EQ(without.GetAudioInfo(), nullptr);
  EXPECT_EQ(without.GetVideoInfo(), nullptr);
  EXPECT_EQ(without.GetVideoSrcInfo(), nullptr);
  EXPECT_EQ(without.GetExtraData(), nullptr);
}

TEST_F(StreamInfoTest, HandsOutTexts) {
  StreamInfo record = MakeRecord();
  std::wmemset(record.description, L'd', 128);  // Without a terminator.
  CStreamInfo with, fresh, without(nullptr, nullptr);
  with.SetStreamInfo(&record);
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
    EXPECT_EQ((fresh.*get)(&out), S_OK);
    EXPECT_EQ(Take(out), L"");
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
  ASSERT_EQ(stream.GetExtraDataLength(), 5U);
  EXPECT_EQ(std::memcmp(stream.GetExtraData(), "\1\2\3\4\5", 5), 0);
  EXPECT_EQ(stream.SetStreamInfo(stream.GetStreamInfo()), 1) << "its own record";
  EXPECT_EQ(std::memcmp(stream.GetExtraData(), "\1\2\3\4\5", 5), 0);
  EXPECT_EQ(stream.SetStreamInfo(nullptr), 0);
  EXPECT_EQ(stream.GetExtraDataLength(), 5U);

  const int failures = FailEachAllocation([&] { return stream.SetStreamInfo(&record) == 1; },
                                          [&] { EXPECT_EQ(stream.GetExtraData()[0], 1); });
  EXPECT_EQ(failures, 2);

  record.extraDataLength = 0;
  stream.SetStreamInfo(&record);
  EXPECT_EQ(stream.GetExtraData(), nullptr);
  record.extraData = nullptr;
  record.extraDataLength = 0xFFFFFFFF;
  stream.SetStreamInfo(&record);
  EXPECT_EQ(stream.GetExtraData(), nullptr);
  EXPECT_EQ(stream.GetExtraDataLength(), 0U) << "a length without data is none";
}

TEST_F(StreamInfoTest, KeepsTypedBlocksInOrder) {
  CStreamInfo stream(nullptr, nullptr);
  unsigned char data[] = {10, 11, 12};
  const auto type = [](int value) { return static_cast<STREAM_EXTRA_DATA_TYPE>(value); };
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(stream.AddExtraData(type(-i), static_cast<unsigned long>(i + 1), data), 1);
  }
  EXPECT_EQ(stream.AddExtraData(type(7), 0, data), 0);
  EXPECT_EQ(stream.AddExtraData(type(7), 4, nullptr), 0);
#if ULONG_MAX > 0xFFFFFFFF
  EXPECT_EQ(stream.AddExtraData(type(7), 1UL << 32, data), 0);
#endif
  const int failures =
      FailEachAllocation([&] { return stream.AddExtraData(type(-3), 3, data) == 1; },
                         [&] { EXPECT_EQ(stream.GetExtraDataCount(), 3U); });
  EXPECT_EQ(failures, 3);
  data[0] = 0;
  const StreamInfo record = MakeRecord();
  stream.SetStreamInfo(&record);  // The blocks stay.
  ASSERT_EQ(stream.GetExtraDataCount(), 4U);
  for (unsigned i = 0; i < 3; ++i) {
    const SStreamExtraData* entry = stream.GetExtraData(i);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->type, -static_cast<int>(i));
    EXPECT_EQ(entry->size, i + 1);
    EXPECT_EQ(entry->data[0], 10);
    EXPECT_EQ(entry->data[i], 10 + i);
  }
  EXPECT_EQ(stream.GetExtraData(4), nullptr);
  EXPECT_EQ(stream.GetExtraData(ULONG_MAX), nullptr);
}

TEST_F(StreamInfoTest, SubpictureStreamsAnswerFromTheirRecordOrFixed) {
  CSubPicStreamInfo stream, aggregating(nullptr, nullptr);
  wchar_t* text = stream.GetType() == 0 ? reinterpret_cast<wchar_t*>(8) : nullptr;
  EXPECT_EQ(aggregating.GetLanguage(&text), E_FAIL);
  EXPECT_EQ(text, nullptr);
  text = reinterpret_cast<wchar_t*>(8);
  EXPECT_EQ(stream.GetDescription(&text), E_FAIL);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(stream.GetLanguage(nullptr), E_POINTER);
  EXPECT_EQ(stream.GetDescription(nullptr), E_POINTER);
  EXPECT_EQ(stream.SetSubPicStreamInfo(nullptr), E_POINTER);

  SubPicStreamInfo record{};
  record.type = 5;
  record.id = 6;
  record.fourCC = 7;
  std::wcscpy(record.language, L"language");
  std::wmemset(record.description, L'd', 157);
  EXPECT_EQ(stream.SetSubPicStreamInfo(&record), S_OK);
  record.id = 66;
  EXPECT_EQ(stream.SetSubPicStreamInfo(nullptr), E_POINTER);
  ISubPicStreamInfo& face = stream;
  EXPECT_EQ(face.GetType(), 5);
  EXPECT_EQ(face.GetID(), 6U);
  EXPECT_EQ(face.GetFourCC(), 7U);
  EXPECT_EQ(face.GetLanguage(&text), S_OK);
  EXPECT_EQ(Take(text), L"language");
  EXPECT_EQ(face.GetDescription(&text), S_OK);
  EXPECT_EQ(Take(text), std::wstring(157, L'd'));
  EXPECT_EQ(face.GetVideoInfo(), nullptr);
  EXPECT_EQ(face.GetStartPTS() + face.GetPTSOffset() + face.GetStreamDelay(), 0);
  EXPECT_EQ(face.GetStreamPID() + face.GetExtraDataLength(), 0U);
  EXPECT_EQ(face.IsStreamSelected() + face.IsLosslessProcess() + face.GetChannelIndex(), 0);
  EXPECT_EQ(face.GetExtraData(), nullptr);
  EXPECT_EQ(face.GetFirstPacketPos(), 0);
  EXPECT_EQ(stream.GetSubPicStreamInfo(), nullptr);
}

/// An outer object that stands for the aggregate: it counts what its inner object forwards.
struct Outer : IUnknown {
  ULONG references = 1;
  int lookups = 0;
  HRESULT QueryInterface(const _GUID&, void** ppv) override {
    ++lookups;
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG AddRef() override { return ++references; }
  ULONG Release() override { return --references; }
};

TEST_F(StreamInfoTest, ExposesItsFaceAndForwardsToItsOwner) {
  auto* stream = new CStreamInfo;
  auto* subPic = new CSubPicStreamInfo;
  stream->AddRef();
  subPic->AddRef();
  void* face = nullptr;
  ASSERT_EQ(stream->QueryInterface(IID_IStreamInfo, &face), S_OK);
  EXPECT_EQ(face, static_cast<IStreamInfo*>(stream));
  EXPECT_EQ(stream->Release(), 1U);
  EXPECT_EQ(stream->QueryInterface(IID_ISubPicStreamInfo, &face), E_NOINTERFACE);
  EXPECT_EQ(face, nullptr);
  ASSERT_EQ(subPic->QueryInterface(IID_ISubPicStreamInfo, &face), S_OK);
  EXPECT_EQ(face, static_cast<ISubPicStreamInfo*>(subPic));
  EXPECT_EQ(subPic->Release(), 1U);
  EXPECT_EQ(subPic->QueryInterface(IID_IStreamInfo, &face), E_NOINTERFACE);
  EXPECT_EQ(subPic->QueryInterface(IID_IStreamInfo, nullptr), E_POINTER);
  EXPECT_EQ(stream->Release(), 0U);
  EXPECT_EQ(subPic->Release(), 0U);

  Outer outer;
  CStreamInfo inner(&outer, nullptr);
  IStreamInfo& innerFace = inner;
  EXPECT_EQ(innerFace.AddRef(), 2U);
  EXPECT_EQ(innerFace.Release(), 1U);
  EXPECT_EQ(innerFace.QueryInterface(IID_IStreamInfo, &face), E_NOINTERFACE);
  EXPECT_EQ(outer.lookups, 1);
  EXPECT_EQ(inner.GetRefCount(), 0);
  ASSERT_EQ(inner.NonDelegatingQueryInterface(IID_IStreamInfo, &face), S_OK);
  EXPECT_EQ(outer.references, 2U);
}

TEST_F(StreamInfoTest, HasNoMetadataObjects) {
  EXPECT_EQ(CreateNewMetaData(), nullptr);
  MetaData_Info_Release(nullptr);
  MetaData_Info_Release(reinterpret_cast<MetaDataInfo*>(1));
}

}  // namespace
