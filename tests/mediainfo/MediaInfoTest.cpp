#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <sstream>

#include "tests/support/Faces.h"
#include "tests/support/LeakCheck.h"
#include "zel/base/Component.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/mediainfo/MetaData.h"
#include "zel/platform/MediaInfoLibrary.h"

namespace {

using MediaInfoTest = LeakCheck;
using StreamInfoTest = LeakCheck;
using testing::Each;
using zel::MakeComponent, zel::Ref;

// Streams.

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
  ExpectFaces<IStreamInfo>(*MakeComponent<CStreamInfo>(), IID_ISubPicStreamInfo);
  const auto outer = MakeComponent<CSubPicStreamInfo>();
  ExpectFaces<ISubPicStreamInfo>(*outer, IID_IStreamInfo);
  CStreamInfo inner(outer->GetOwner(), nullptr);
  IStreamInfo& face = inner;
  Ref<IUnknown> found;
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

// Programs and files.

/// A program's record. The ids of its video, audio and subpicture streams count up from 1.
struct Program : ProgramInfo {
  StreamInfo streams[4] = {};
  Program(std::uint32_t program, int videos, int audios, int subPics)
      : ProgramInfo{100, program, 2.5, 64000, videos, audios, {}, {}, 0xABC, subPics, {}} {
    static unsigned char data[] = {7, 8, 9};
    std::uint32_t next = program << 16;
    for (StreamInfo& stream : streams) {
      stream.id = ++next;
      stream.channelIndex = -1;
      stream.extraData = data;
      stream.extraDataLength = 3;
    }
    videoStreams = streams;
    audioStreams = videoStreams + videos;
    subPicStreams = audioStreams + audios;
  }
};

struct File : MEDIA_FILE_INFO {
  std::vector<ProgramInfo> records;
  explicit File(std::vector<ProgramInfo> list)
      : MEDIA_FILE_INFO{77, L"/a/\x4E2D.mp4", {}, 12.25, 128000, {}, {}, {}}, records(list) {
    std::wmemset(description, L'x', 128);  // Without a terminator.
    programCount = static_cast<int>(records.size());
    programs = records.data();
  }
};

/// A program's numbers, and the ids of its streams list by list.
std::string Text(IProgramInfo& p) {
  std::ostringstream out;
  out << p.GetNumber() << ' ' << p.GetID() << ' ' << p.GetMediaLength() << ' ' << p.GetBitrate()
      << ' ' << std::hex << p.GetTimeStampReferenceStreamID();
  for (const auto get : {&IProgramInfo::GetVideoStreamInfos, &IProgramInfo::GetAudioStreamInfos,
                         &IProgramInfo::GetSubPicStreamInfos}) {
    Ref<IStreamInfos> list;
    out << ((p.*get)(list.Receive()) == S_OK ? " |" : " -");
    for (int i = 0; list && i < list->GetCount(); ++i) {
      Ref<IStreamInfo> item;
      EXPECT_EQ(list->GetItem(i, item.Receive()), S_OK);
      out << ' ' << item->GetID();
    }
  }
  return out.str();
}

/// A file's numbers and programs.
std::string Text(CMediaInfo& info) {
  std::ostringstream out;
  out << info.GetFourCC() << ' ' << info.GetMediaLength() << ' ' << info.GetBitrate() << ' '
      << info.IsFrameRateConstant() << ' ' << info.GetSeekCapacity() << ' '
      << info.GetTrimSegmentNumber();
  Ref<IProgramInfos> programs;
  info.GetIPrograms(programs.Receive());
  for (int i = 0; programs && i < programs->GetCount(); ++i) {
    Ref<IProgramInfo> program;
    programs->GetItem(i, program.Receive());
    out << "; " << Text(*program);
  }
  return out.str();
}

/// A stream that tells when it goes.
struct Traced : CStreamInfo {
  Traced(std::string& log, char letter) : gone(log), name(letter) {}
  ~Traced() override { gone += name; }
  std::string& gone;
  const char name;
};

TEST_F(MediaInfoTest, ListsHoldOneReferencePerItemAndReleaseTheLastFirst) {
  std::string gone;
  auto list = MakeComponent<CStreamInfos>();
  EXPECT_EQ(list->Add(nullptr), -1);
  for (const char name : {'a', 'b', 'c'}) EXPECT_EQ(list->Add(new Traced(gone, name)), name - 'a');
  Ref<IStreamInfo> item;
  ASSERT_EQ(list->GetItem(1, item.Receive()), S_OK);
  EXPECT_EQ(static_cast<Traced*>(item.get())->name, 'b');
  EXPECT_EQ(static_cast<Traced*>(item.get())->GetRefCount(), 2);
  EXPECT_EQ(list->GetItem(0, nullptr), E_POINTER);
  for (const int index : {-1, 3, INT_MIN, INT_MAX}) {
    IStreamInfo* none = item.get();
    EXPECT_EQ(list->GetItem(index, &none), E_POINTER);
    EXPECT_EQ(none, nullptr);
  }
  EXPECT_EQ(list->Clear(), S_OK);
  EXPECT_EQ(list->GetCount(), 0);
  for (const char name : {'d', 'e'}) list->Add(new Traced(gone, name));
  list = nullptr;
  EXPECT_EQ(gone, "caed");
}

TEST_F(MediaInfoTest, ListsAppendCopiesOfRecords) {
  const auto streams = MakeComponent<CStreamInfos>();
  const auto subPics = MakeComponent<CSubPicStreamInfos>();
  const auto programs = MakeComponent<CProgramInfos>();
  const Program program(0, 1, 0, 0);
  const SubPicStreamInfo subPic{0, 8, 0, {}, {}};
  const HRESULT refused[] = {streams->AddByStreamInfo(nullptr),
                             subPics->AddBySubPicStreamInfo(nullptr),
                             programs->AddByMediaInfo(nullptr)};
  EXPECT_THAT(refused, Each(E_POINTER));
  EXPECT_EQ(subPics->AddBySubPicStreamInfo(&subPic), S_OK);
  streams->AddNewStream()->id = 6;
  for (int count = 1; count < 20; ++count) {
    const auto add = [&] { return streams->AddByStreamInfo(program.videoStreams) == S_OK; };
    EXPECT_GE(FailEachAllocation(add, [&] { EXPECT_EQ(streams->GetCount(), count); }), 4);
  }
  Ref<IStreamInfo> first, last;
  Ref<ISubPicStreamInfo> item;
  streams->GetItem(0, first.Receive());
  streams->GetItem(19, last.Receive());
  subPics->GetItem(0, item.Receive());
  EXPECT_EQ(std::tuple(first->GetID(), last->GetID(), item->GetID()), std::tuple(6U, 1U, 8U));
}

TEST_F(MediaInfoTest, ObjectsExposeTheirOwnInterfacesAlone) {
  ExpectFaces<IStreamInfos>(*MakeComponent<CStreamInfos>(), IID_IStreamInfo);
  ExpectFaces<ISubPicStreamInfos>(*MakeComponent<CSubPicStreamInfos>(), IID_ISubPicStreamInfo);
  ExpectFaces<IProgramInfos>(*MakeComponent<CProgramInfos>(), IID_IProgramInfo);
  ExpectFaces<IProgramInfo>(*MakeComponent<CProgramInfo>(), IID_IProgramInfos);
  ExpectFaces<IMediaInfo, IMediaSetting, IMediaSettingInternal>(*MakeComponent<CMediaInfo>(),
                                                                IID_IProgramInfos);
}

TEST_F(MediaInfoTest, ProgramsReplaceRecordAndListsTogether) {
  const Program first(1, 2, 0, 1), second(2, 0, 1, 0);
  const auto program = MakeComponent<CProgramInfo>(), other = MakeComponent<CProgramInfo>();
  EXPECT_EQ(Text(*program), "0 0 0 0 0 - - -");
  auto* none = reinterpret_cast<IStreamInfos*>(8);
  EXPECT_EQ(program->GetVideoStreamInfos(&none), E_FAIL);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(program->GetVideoStreamInfos(nullptr), E_POINTER);
  EXPECT_EQ(program->SetProgramInfo(&first), S_OK);
  EXPECT_EQ(Text(*program), "100 1 2.5 64000 abc | 10001 10002 - | 10003");
  Ref<IStreamInfos> old;
  ASSERT_EQ(program->GetVideoStreamInfos(old.Receive()), S_OK);
  EXPECT_EQ(program->SetProgramInfo(&second), S_OK);
  EXPECT_EQ(program->SetProgramInfo(nullptr), E_POINTER);
  EXPECT_EQ(Text(*program), "100 2 2.5 64000 abc - | 20001 -");
  EXPECT_EQ(old->GetCount(), 2) << "a list lives on for those who hold it";
  ProgramInfo hostile = first;
  hostile.videoStreamCount = -3;
  hostile.subPicStreams = nullptr;
  EXPECT_EQ(program->SetProgramInfo(&hostile), S_OK);
  EXPECT_EQ(Text(*program), "100 1 2.5 64000 abc - - -");

  // Streams on request; the record stays.
  EXPECT_EQ(program->AddStream(AV_STREAM_VIDEO)->id, 0xFFFFFFFF);
  program->AddStream(AV_STREAM_VIDEO)->id = 1;
  program->AddStream(AV_STREAM_AUDIO)->id = 2;
  EXPECT_EQ(program->AddStream(static_cast<AV_STREAM_TYPE>(4)), nullptr);
  EXPECT_EQ(Text(*program), "100 1 2.5 64000 abc | ffffffff 1 | 2 -");
  EXPECT_GE(FailEachAllocation([&] { return other->AddStream(AV_STREAM_AUDIO) != nullptr; },
                               [&] { EXPECT_EQ(Text(*other), "0 0 0 0 0 - - -"); }),
            2);
}

TEST_F(MediaInfoTest, RecordsAreClonedDeeply) {
  Program program(1, 2, 1, 1);
  program.audioStreams->extraData = nullptr;  // A length without data.
  ProgramInfo* copy = nullptr;
  const long live = LiveAllocations();
  EXPECT_EQ(FailEachAllocation([&] { return (copy = CloneProgramInfo(&program)) != nullptr; },
                               [&] { EXPECT_EQ(LiveAllocations(), live); }),
            7);  // The record, three arrays, three blocks of extra data.
  const StreamInfo &video = copy->videoStreams[1], &audio = *copy->audioStreams,
                   &subPic = *copy->subPicStreams;
  EXPECT_EQ(std::tuple(copy->id, copy->videoStreamCount, copy->audioStreamCount,
                       copy->subPicStreamCount, video.id, subPic.id, audio.extraDataLength),
            std::tuple(1U, 2, 1, 1, 0x10002U, 0x10004U, 0U));
  EXPECT_NE(subPic.extraData, program.subPicStreams->extraData);
  EXPECT_EQ(std::memcmp(subPic.extraData, "\7\10\11", 3), 0);
  EXPECT_EQ(audio.extraData, nullptr);
  FreeProgramInfo(copy);

  EXPECT_EQ(CloneProgramInfo(nullptr), nullptr);
  FreeProgramInfo(nullptr);
  program.videoStreams = nullptr;
  program.audioStreamCount = INT_MIN;
  copy = CloneProgramInfo(&program);
  EXPECT_EQ(copy->videoStreamCount, 0);
  EXPECT_EQ(copy->audioStreams, nullptr);
  FreeProgramInfo(copy);
}

TEST_F(MediaInfoTest, RefusesWithoutPrograms) {
  const auto info = MakeComponent<CMediaInfo>();
  auto* out = reinterpret_cast<IProgramInfos*>(8);
  wchar_t* text = nullptr;
  const HRESULT noPlace[] = {info->GetIPrograms(nullptr), info->GetFileName(nullptr),
                             info->GetDescription(nullptr), info->Fill(nullptr)};
  const HRESULT nothing[] = {info->GetIPrograms(&out), info->SelectStream(1, 0, 0),
                             info->UpdateAllStream(1)};
  const HRESULT notMade[] = {info->SetStreamIdentifier(1, text),
                             info->GetStreamIndentifier(1, &text),
                             info->UpdateTrimSetting(nullptr)};
  EXPECT_THAT(noPlace, Each(E_POINTER));
  EXPECT_THAT(nothing, Each(S_FALSE));
  EXPECT_THAT(notMade, Each(E_ZEL_NOTIMPL));
  EXPECT_EQ(out, reinterpret_cast<IProgramInfos*>(8)) << "untouched";
  EXPECT_EQ(info->GetOjectReference(), 1);
  EXPECT_EQ(info->GetSelectStreamNumber(0xFFFFFFFF), 0);
  EXPECT_TRUE(!info->FindStream(0) && !info->GetStreamInfoObject(0));
}

TEST_F(MediaInfoTest, TakesWhatItIsFilledWith) {
  const Program first(1, 1, 1, 0), second(2, 0, 2, 1);
  File file({first, second});
  long result = 17;
  const auto info = MakeComponent<CMediaInfo>(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(Text(*info), "0 0 0 1 0 0");
  info->AddTrimSegment({}, 0, 0);
  EXPECT_EQ(info->Fill(&file), S_OK);
  EXPECT_EQ(Text(*info),
            "77 12.25 128000 0 1 0; 100 1 2.5 64000 abc | 10001 | 10002 -; 100 2 2.5 64000 abc - | "
            "20001 20002 | 20003");
  wchar_t *name = nullptr, *description = nullptr;
  EXPECT_EQ(info->GetFileName(&name), S_OK);
  EXPECT_EQ(info->GetDescription(&description), S_OK);
  EXPECT_EQ(Take(name), file.fileName);
  EXPECT_EQ(Take(description), std::wstring(128, L'x'));

  Ref<IProgramInfos> programs, now;
  info->GetIPrograms(programs.Receive());
  const auto expectUnchanged = [&] {
    info->GetIPrograms(now.Receive());
    EXPECT_EQ(now.get(), programs.get());
    EXPECT_EQ(info->GetFourCC(), 77U);
  };
  file.fourCC = 78;
  EXPECT_GE(FailEachAllocation([&] { return info->Fill(&file) == S_OK; }, expectUnchanged), 20);
  file.programs = nullptr;
  EXPECT_EQ(info->Fill(&file), E_POINTER);
  file.programCount = -1;
  EXPECT_EQ(info->Fill(&file), S_OK);
  EXPECT_EQ(Text(*info), "78 12.25 128000 0 1 0");
  EXPECT_EQ(info->UpdateAllStream(1), S_OK);
  EXPECT_EQ(info->AddProgram(), S_OK);
  EXPECT_EQ(Text(*info), "78 12.25 128000 0 1 0; 0 0 0 0 0 - - -");
}

TEST_F(MediaInfoTest, FindsStreamsByTwoRules) {
  // Program 0x101 is out of reach of the first search; its streams' ids look like program 1's.
  const Program one(1, 1, 2, 1), twin(1, 0, 1, 1), far(0x101, 1, 0, 0);
  far.videoStreams->id = 0x00050030;
  const File file({far, one, twin});
  const auto info = MakeComponent<CMediaInfo>();
  info->Fill(&file);
  // What FindStream and GetStreamInfoObject find by an id: the ids of the stream, or 0.
  using Case = std::tuple<unsigned long, std::uint32_t, std::uint32_t>;
  for (const auto& [id, record, object] : {
           Case{0x00010001, 0x00010001, 0x00010001},  // Video.
           Case{0x00010002, 0x00010002, 0x00010002},  // Audio; the first program's one of two.
           Case{0x00010004, 0x00010004, 0x00010004},  // Subpictures.
           Case{0xFF010003, 0x00010003, 0x00010003},  // Bits 24 to 31 do not matter.
           Case{0x00020001, 0, 0},                    // There is no such program.
           Case{0x00010030, 0, 0},                    // Program 0x101 is not program 1.
           Case{0x00050030, 0, 0x00050030},           // No program 5, but a stream with that id.
           Case{0, 0, 0},
       }) {
    const StreamInfo* foundRecord = info->FindStream(id);
    EXPECT_EQ(foundRecord != nullptr ? foundRecord->id : 0, record) << id;
    CStreamInfo* found = info->GetStreamInfoObject(id);
    EXPECT_EQ(found != nullptr ? found->GetID() : 0, object) << id;
    EXPECT_EQ(found != nullptr ? found->GetRefCount() : 1, 1);
  }
}

TEST_F(MediaInfoTest, KeepsChoicesInTheStreams) {
  constexpr unsigned long kVideo = 0x10001, kAudio = 0x10002, kSubPic = 0x10003, kOther = 0x20002,
                          kNone = 0x20003;
  const Program first(1, 1, 1, 1), second(2, 0, 2, 0);
  const File file({first, second});
  const auto info = MakeComponent<CMediaInfo>();
  info->Fill(&file);
  // Selection, lossless flag and channel of each stream.
  const auto choices = [&] {
    std::ostringstream out;
    for (const unsigned long id : {kVideo, kAudio, kSubPic, kOther, kNone}) {
      unsigned int lossless = 44;
      unsigned long channel = 55;
      out << info->IsStreamSelected(id, &lossless, &channel) << '/' << lossless << '/';
      out << static_cast<int>(channel) << ' ';
    }
    return out.str();
  };
  const HRESULT refused[] = {info->SelectStream(kNone, 0, 0), info->UpdateStreamSetting(kNone, 0),
                             info->ClearSelectStream(kNone)};
  EXPECT_THAT(refused, Each(S_FALSE));
  EXPECT_EQ(choices(), "0/0/-1 0/0/-1 0/0/-1 0/0/-1 0/44/55 ");
  const HRESULT done[] = {info->SelectStream(kAudio, 1, 3), info->SelectStream(kSubPic, 5, 0),
                          info->SelectStream(kOther, 5, 0), info->ClearSelectStream(kAudio)};
  EXPECT_THAT(done, Each(S_OK));
  EXPECT_EQ(choices(), "0/0/-1 0/1/3 1/5/0 1/5/0 0/44/55 ");
  EXPECT_EQ(info->UpdateStreamSetting(kAudio, 7), S_OK);
  EXPECT_EQ(choices(), "0/0/-1 1/7/3 1/5/0 1/5/0 0/44/55 ");
  EXPECT_EQ(info->IsStreamSelected(kAudio, nullptr, nullptr), 1);
  std::vector<int> counts;
  for (const unsigned long program : {0UL, 1UL, 2UL, 3UL, 0xFFFFFFFEUL, 0xFFFFFFFFUL, ULONG_MAX}) {
    counts.push_back(info->GetSelectStreamNumber(program));
  }
  EXPECT_EQ(counts, (std::vector{0, 1, 1, 0, 0, 2, 2}));
  // Subpictures are left out, and so is what is not selected.
  EXPECT_EQ(info->UpdateAllStream(9), S_OK);
  EXPECT_EQ(choices(), "0/0/-1 1/9/3 1/5/0 1/9/0 0/44/55 ");

  unsigned long length = 66;
  StreamInfo& audio = *info->FindStream(kAudio);
  audio.extraDataLength = 0;
  EXPECT_TRUE(!info->GetExtraData(kNone, &length) && !info->GetExtraData(kAudio, &length));
  EXPECT_EQ(length, 66U);
  audio.extraDataLength = 1;
  EXPECT_EQ(info->GetExtraData(kAudio, nullptr), nullptr);
  EXPECT_EQ(info->GetExtraData(kAudio, &length), audio.extraData);
  EXPECT_EQ(length, 1U);
}

bool operator==(const STrimSegment& a, const STrimSegment& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

TEST_F(MediaInfoTest, KeepsTrimSegmentsInOrder) {
  const auto info = MakeComponent<CMediaInfo>();
  const STrimSegment segments[] = {{{1, -2, INT64_MAX, 4}}, {{5, 6, 7, INT64_MIN}}, {}};
  for (const unsigned i : {0U, 1U}) {
    for (const int allocations : {0, 1, -1}) {
      FailAllocationAfter(allocations);
      EXPECT_TRUE(info->AddTrimSegment(segments[i], 8, 9) == segments[i]);
      EXPECT_EQ(info->GetTrimSegmentNumber(), allocations < 0 ? i + 1 : i) << "memory was short";
    }
  }
  for (const unsigned long i : {0UL, 1UL, 2UL, ULONG_MAX}) {
    EXPECT_TRUE(info->GetTrimSegment(i) == segments[std::min(i, 2UL)]);
  }
  EXPECT_EQ(info->RemoveAllTrimSegments(), S_OK);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 0U);
  info->AddTrimSegment({}, 0, 0);  // Freed with the object.
}

}  // namespace
