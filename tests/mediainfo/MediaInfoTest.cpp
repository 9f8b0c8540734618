#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <sstream>

#include "tests/support/Faces.h"
#include "tests/support/LeakCheck.h"
#include "zel/base/Component.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/MediaInfoLibrary.h"

namespace {

using MediaInfoTest = LeakCheck;
using testing::Each;
using zel::MakeComponent, zel::Ref;

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

constexpr HRESULT (IProgramInfo::*kLists[])(IStreamInfos**) = {&IProgramInfo::GetVideoStreamInfos,
                                                               &IProgramInfo::GetAudioStreamInfos,
                                                               &IProgramInfo::GetSubPicStreamInfos};

/// A program's numbers, and the ids of its streams list by list.
std::string Text(IProgramInfo& p) {
  std::ostringstream out;
  out << p.GetNumber() << ' ' << p.GetID() << ' ' << p.GetMediaLength() << ' ' << p.GetBitrate()
      << ' ' << std::hex << p.GetTimeStampReferenceStreamID();
  for (const auto get : kLists) {
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
