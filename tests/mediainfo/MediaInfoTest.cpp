#include <climits>
#include <cstring>
#include <vector>

#include "tests/support/LeakCheck.h"
#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/MediaInfoLibrary.h"

namespace {

using MediaInfoTest = LeakCheck;
using zel::Ref;
using IdList = std::vector<std::uint32_t>;

template <class T>
Ref<T> Make() {
  return Ref<T>::Share(new T);
}

unsigned char kExtraData[] = {7, 8, 9};

/// A program's record over arrays of its own. Video ids begin at 1, audio at 11, subpictures at 21.
struct Program {
  std::vector<StreamInfo> video, audio, subPic;
  ProgramInfo record{};

  Program(std::uint32_t id, int videos, int audios, int subPics)
      : video(Streams(2, videos, id << 16 | 1)),
        audio(Streams(3, audios, id << 16 | 11)),
        subPic(Streams(4, subPics, id << 16 | 21)),
        record{static_cast<int>(id) + 100,
               id,
               2.5,
               64000,
               videos,
               audios,
               video.data(),
               audio.data(),
               id << 16 | 1,
               subPics,
               subPic.data()} {}
  static std::vector<StreamInfo> Streams(int type, int count, std::uint32_t id) {
    StreamInfo s{};
    s.type = type;
    s.channelIndex = -1;
    s.extraData = kExtraData;
    s.extraDataLength = 3;
    std::vector<StreamInfo> streams(static_cast<std::size_t>(count), s);
    for (StreamInfo& stream : streams) stream.id = id++;
    return streams;
  }
};

struct File {
  std::vector<ProgramInfo> programs;
  MEDIA_FILE_INFO record{};

  explicit File(std::initializer_list<const Program*> list) {
    for (const Program* program : list) programs.push_back(program->record);
    record.fourCC = 0x34706D2E;
    std::wcscpy(record.fileName, L"/a/\x4E2D.mp4");
    std::wmemset(record.description, L'x', 128);  // Without a terminator.
    record.mediaLength = 12.25;
    record.bitrate = 128000;
    record.programCount = static_cast<int>(programs.size());
    record.programs = programs.data();
  }
};

/// The ids of a list's items; none without a list.
template <class Item, class List>
IdList Ids(const Ref<List>& list) {
  IdList ids;
  for (int i = 0; list && i < list->GetCount(); ++i) {
    Ref<Item> item;
    EXPECT_EQ(list->GetItem(i, item.Receive()), S_OK);
    ids.push_back(item->GetID());
  }
  return ids;
}

constexpr HRESULT (IProgramInfo::*kLists[])(IStreamInfos**) = {&IProgramInfo::GetVideoStreamInfos,
                                                               &IProgramInfo::GetAudioStreamInfos,
                                                               &IProgramInfo::GetSubPicStreamInfos};

/// The ids of a program's video, audio and subpicture streams.
std::vector<IdList> Ids(IProgramInfo& program) {
  std::vector<IdList> lists;
  for (const auto get : kLists) {
    Ref<IStreamInfos> list;
    (program.*get)(list.Receive());
    lists.push_back(Ids<IStreamInfo>(list));
  }
  return lists;
}

/// The ids of a file's programs.
IdList Ids(CMediaInfo& info) {
  Ref<IProgramInfos> programs;
  info.GetIPrograms(programs.Receive());
  return Ids<IProgramInfo>(programs);
}

/// What a program answers of itself.
std::vector<double> Ask(IProgramInfo& p) {
  return {static_cast<double>(p.GetNumber()), static_cast<double>(p.GetID()), p.GetMediaLength(),
          static_cast<double>(p.GetBitrate()),
          static_cast<double>(p.GetTimeStampReferenceStreamID())};
}

TEST_F(MediaInfoTest, ListsHoldOneReferencePerItem) {
  const auto list = Make<CStreamInfos>();
  EXPECT_EQ(list->GetCount(), 0);
  EXPECT_EQ(list->Clear(), S_OK);
  CStreamInfo* items[3];
  for (int i = 0; i < 3; ++i) {
    items[i] = new CStreamInfo;
    EXPECT_EQ(list->Add(items[i]), i);
    EXPECT_EQ(items[i]->GetRefCount(), 1);
  }
  EXPECT_EQ(list->Add(nullptr), -1);
  Ref<IStreamInfo> item;
  ASSERT_EQ(list->GetItem(1, item.Receive()), S_OK);
  EXPECT_EQ(item.get(), static_cast<IStreamInfo*>(items[1]));
  EXPECT_EQ(items[1]->GetRefCount(), 2);
  EXPECT_EQ(list->GetItem(0, nullptr), E_POINTER);
  for (const int index : {-1, 3, INT_MIN, INT_MAX}) {
    IStreamInfo* none = item.get();
    EXPECT_EQ(list->GetItem(index, &none), E_POINTER);
    EXPECT_EQ(none, nullptr);
  }
  EXPECT_EQ(list->Clear(), S_OK);
  EXPECT_EQ(list->GetCount(), 0);
  EXPECT_EQ(items[1]->GetRefCount(), 1);
  EXPECT_EQ(list->Add(items[1]), 0);
}

TEST_F(MediaInfoTest, ListsAppendCopiesOfRecords) {
  const auto streams = Make<CStreamInfos>();
  const auto subPics = Make<CSubPicStreamInfos>();
  const StreamInfo record = Program::Streams(2, 1, 5)[0];
  SubPicStreamInfo subPic{};
  subPic.id = 8;
  EXPECT_EQ(streams->AddByStreamInfo(nullptr), E_POINTER);
  EXPECT_EQ(subPics->AddBySubPicStreamInfo(nullptr), E_POINTER);
  EXPECT_EQ(subPics->AddBySubPicStreamInfo(&subPic), S_OK);
  EXPECT_EQ(Make<CProgramInfos>()->AddNewProgram(), S_OK);
  StreamInfo* fresh = streams->AddNewStream();
  EXPECT_EQ(fresh->id, 0xFFFFFFFF);
  fresh->id = 6;
  for (int count = 1; count < 20; ++count) {
    EXPECT_GE(FailEachAllocation([&] { return streams->AddByStreamInfo(&record) == S_OK; },
                                 [&] { EXPECT_EQ(streams->GetCount(), count); }),
              4);
    EXPECT_EQ(streams->GetCount(), count + 1);
  }
  Ref<IStreamInfo> first, second;
  streams->GetItem(0, first.Receive());
  streams->GetItem(1, second.Receive());
  EXPECT_EQ(first->GetID(), 6U);
  EXPECT_EQ(second->GetID(), 5U);
  Ref<ISubPicStreamInfo> item;
  ASSERT_EQ(subPics->GetItem(0, item.Receive()), S_OK);
  EXPECT_EQ(item->GetID(), 8U);
}

/// `C` hands out the faces with these ids, and IUnknown, but not the one of `other`.
template <class C>
void ExpectFaces(const std::vector<std::pair<_GUID, void* (*)(C*)>>& faces, const _GUID& other) {
  const auto object = Make<C>();
  for (const auto& [id, face] : faces) {
    Ref<IUnknown> found;
    ASSERT_EQ(object->QueryInterface(id, found.ReceiveVoid()), S_OK);
    EXPECT_EQ(static_cast<void*>(found.get()), face(object.get()));
    EXPECT_EQ(object->GetRefCount(), 2);
  }
  EXPECT_EQ(object->GetRefCount(), 1);
  void* none = object.get();
  EXPECT_EQ(object->QueryInterface(other, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(object->QueryInterface(faces[0].first, nullptr), E_POINTER);
}
template <class C, class I>
void* Face(C* object) {
  return static_cast<I*>(object);
}

TEST_F(MediaInfoTest, ObjectsExposeTheirOwnInterfacesAlone) {
  using Root = scombase::INonDelegatingUnknown;
  ExpectFaces<CStreamInfos>({{IID_IStreamInfos, Face<CStreamInfos, IStreamInfos>},
                             {IID_IUnknown, Face<CStreamInfos, Root>}},
                            IID_IStreamInfo);
  ExpectFaces<CProgramInfos>({{IID_IProgramInfos, Face<CProgramInfos, IProgramInfos>}},
                             IID_IProgramInfo);
  ExpectFaces<CSubPicStreamInfos>(
      {{IID_ISubPicStreamInfos, Face<CSubPicStreamInfos, ISubPicStreamInfos>}},
      IID_ISubPicStreamInfo);
  ExpectFaces<CProgramInfo>({{IID_IProgramInfo, Face<CProgramInfo, IProgramInfo>}},
                            IID_IProgramInfos);
  ExpectFaces<CMediaInfo>({{IID_IMediaInfo, Face<CMediaInfo, IMediaInfo>},
                           {IID_IMediaSetting, Face<CMediaInfo, IMediaSetting>},
                           {IID_IMediaSettingInternal, Face<CMediaInfo, IMediaSettingInternal>},
                           {IID_IUnknown, Face<CMediaInfo, Root>}},
                          IID_IProgramInfos);
}

TEST_F(MediaInfoTest, ProgramsReplaceRecordAndListsTogether) {
  const Program first(1, 2, 0, 1), second(2, 0, 1, 0);
  const auto program = Make<CProgramInfo>();
  const std::vector<IdList> none(3);
  EXPECT_EQ(Ask(*program), std::vector<double>(5));
  for (const auto get : kLists) {
    auto* out = reinterpret_cast<IStreamInfos*>(8);
    EXPECT_EQ((program.get()->*get)(&out), E_FAIL);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ((program.get()->*get)(nullptr), E_POINTER);
  }
  EXPECT_EQ(program->SetProgramInfo(&first.record), S_OK);
  EXPECT_EQ(Ask(*program), (std::vector<double>{101, 1, 2.5, 64000, 0x10001}));
  EXPECT_EQ(Ids(*program), (std::vector<IdList>{{0x10001, 0x10002}, {}, {0x10015}}));
  Ref<IStreamInfos> old;
  ASSERT_EQ(program->GetVideoStreamInfos(old.Receive()), S_OK);
  EXPECT_EQ(program->SetProgramInfo(&second.record), S_OK);
  EXPECT_EQ(program->SetProgramInfo(nullptr), E_POINTER);
  EXPECT_EQ(program->GetID(), 2U);
  EXPECT_EQ(Ids(*program), (std::vector<IdList>{{}, {0x2000B}, {}}));
  EXPECT_EQ(old->GetCount(), 2);

  ProgramInfo hostile = first.record;
  hostile.videoStreamCount = -3;
  hostile.subPicStreams = nullptr;
  EXPECT_EQ(program->SetProgramInfo(&hostile), S_OK);
  EXPECT_EQ(Ids(*program), none);

  // Streams on request; the record stays.
  StreamInfo* records[] = {program->AddStream(AV_STREAM_VIDEO), program->AddStream(AV_STREAM_VIDEO),
                           program->AddStream(AV_STREAM_AUDIO)};
  EXPECT_EQ(records[0]->id, 0xFFFFFFFF);
  for (std::uint32_t i = 0; i < 3; ++i) records[i]->id = i;
  EXPECT_EQ(program->AddStream(static_cast<AV_STREAM_TYPE>(4)), nullptr);
  EXPECT_EQ(Ids(*program), (std::vector<IdList>{{0, 1}, {2}, {}}));
  EXPECT_EQ(program->GetID(), 1U);
  const auto other = Make<CProgramInfo>();
  EXPECT_GE(FailEachAllocation([&] { return other->AddStream(AV_STREAM_AUDIO) != nullptr; },
                               [&] { EXPECT_EQ(Ids(*other), none); }),
            2);
}

TEST_F(MediaInfoTest, RecordsAreClonedDeeply) {
  Program program(1, 2, 1, 1);
  program.audio[0].extraData = nullptr;  // A length without data.
  ProgramInfo* copy = nullptr;
  const long live = LiveAllocations();
  EXPECT_EQ(
      FailEachAllocation([&] { return (copy = CloneProgramInfo(&program.record)) != nullptr; },
                         [&] { EXPECT_EQ(LiveAllocations(), live); }),
      7);  // The record, three arrays, three blocks of extra data.
  EXPECT_EQ((IdList{copy->id, copy->videoStreams[1].id, copy->audioStreams[0].extraDataLength}),
            (IdList{1, 0x10002, 0}));
  EXPECT_EQ((std::vector{copy->videoStreamCount, copy->audioStreamCount, copy->subPicStreamCount}),
            (std::vector{2, 1, 1}));
  EXPECT_NE(copy->videoStreams, program.record.videoStreams);
  EXPECT_NE(copy->subPicStreams[0].extraData, kExtraData);
  EXPECT_EQ(std::memcmp(copy->subPicStreams[0].extraData, kExtraData, 3), 0);
  EXPECT_EQ(copy->audioStreams[0].extraData, nullptr);
  FreeProgramInfo(copy);

  EXPECT_EQ(CloneProgramInfo(nullptr), nullptr);
  FreeProgramInfo(nullptr);
  ProgramInfo hostile{};
  hostile.videoStreamCount = INT_MAX;
  hostile.audioStreamCount = INT_MIN;
  hostile.audioStreams = program.audio.data();
  copy = CloneProgramInfo(&hostile);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->videoStreamCount, 0);
  EXPECT_EQ(copy->audioStreams, nullptr);
  FreeProgramInfo(copy);
}

TEST_F(MediaInfoTest, TakesWhatItIsFilledWith) {
  const Program first(1, 1, 1, 0), second(2, 0, 2, 1), third(3, 0, 0, 0);
  const File file{&first, &second, &third};
  long result = 17;
  const auto info = Ref<CMediaInfo>::Share(new CMediaInfo(nullptr, &result));
  EXPECT_EQ(result, 17);
  auto* out = reinterpret_cast<IProgramInfos*>(8);
  EXPECT_EQ(info->GetIPrograms(&out), S_FALSE);
  EXPECT_EQ(out, reinterpret_cast<IProgramInfos*>(8));
  EXPECT_EQ(info->GetIPrograms(nullptr), E_POINTER);
  EXPECT_EQ(info->GetOjectReference(), 1);
  EXPECT_EQ(info->GetSelectStreamNumber(0xFFFFFFFF), 0);
  EXPECT_EQ(info->SelectStream(0x10001, 0, 0), S_FALSE);
  EXPECT_EQ(info->UpdateAllStream(1), S_FALSE);
  EXPECT_EQ(info->FindStream(0), nullptr);
  EXPECT_EQ(info->GetStreamInfoObject(0), nullptr);
  wchar_t* text = nullptr;
  EXPECT_EQ(info->SetStreamIdentifier(1, text), E_ZEL_NOTIMPL);
  EXPECT_EQ(info->GetStreamIndentifier(1, &text), E_ZEL_NOTIMPL);
  EXPECT_EQ(info->UpdateTrimSetting(nullptr), E_ZEL_NOTIMPL);

  const auto figures = [&] {
    return std::vector<double>{static_cast<double>(info->GetFourCC()),
                               info->GetMediaLength(),
                               static_cast<double>(info->GetBitrate()),
                               static_cast<double>(info->IsFrameRateConstant()),
                               static_cast<double>(info->GetSeekCapacity()),
                               static_cast<double>(info->GetTrimSegmentNumber())};
  };
  const auto expectTexts = [&](const std::wstring& name, const std::wstring& description) {
    EXPECT_EQ(info->GetFileName(&text), S_OK);
    EXPECT_EQ(Take(text), name);
    EXPECT_EQ(info->GetDescription(&text), S_OK);
    EXPECT_EQ(Take(text), description);
    EXPECT_EQ(info->GetFileName(nullptr), E_POINTER);
    EXPECT_EQ(info->GetDescription(nullptr), E_POINTER);
  };
  EXPECT_EQ(figures(), (std::vector<double>{0, 0, 0, 1, 0, 0}));
  expectTexts(L"", L"");
  info->AddTrimSegment({}, 0, 0);
  EXPECT_EQ(info->Fill(&file.record), S_OK);
  EXPECT_EQ(figures(), (std::vector<double>{0x34706D2E, 12.25, 128000, 0, 1, 0}));
  expectTexts(L"/a/\x4E2D.mp4", std::wstring(128, L'x'));
  EXPECT_EQ(Ids(*info), (IdList{1, 2, 3}));

  Ref<IProgramInfos> programs;
  info->GetIPrograms(programs.Receive());
  MEDIA_FILE_INFO hostile = file.record;
  hostile.programs = nullptr;
  EXPECT_EQ(info->Fill(nullptr), E_POINTER);
  EXPECT_EQ(info->Fill(&hostile), E_POINTER);
  const auto unchanged = [&] {
    Ref<IProgramInfos> now;
    info->GetIPrograms(now.Receive());
    EXPECT_EQ(now.get(), programs.get());
  };
  unchanged();
  EXPECT_GE(FailEachAllocation([&] { return info->Fill(&file.record) == S_OK; }, unchanged), 20);
  EXPECT_EQ(programs->GetCount(), 3) << "a list lives on for those who hold it";

  hostile.programCount = -1;
  EXPECT_EQ(info->Fill(&hostile), S_OK);
  EXPECT_EQ(Ids(*info), IdList{});
  EXPECT_EQ(info->UpdateAllStream(1), S_OK);
  EXPECT_EQ(info->AddProgram(), S_OK);
  EXPECT_EQ(Ids(*info), IdList{0});
}

TEST_F(MediaInfoTest, FindsStreamsByTwoRules) {
  // Program 0x101 is out of reach of the first search; its streams' ids look like program 1's.
  const Program one(1, 1, 2, 1), twin(1, 0, 1, 1);
  Program far(0x101, 1, 0, 0);
  far.video[0].id = 0x00050030;
  const File file{&far, &one, &twin};
  const auto info = Make<CMediaInfo>();
  ASSERT_EQ(info->Fill(&file.record), S_OK);
  struct Case {
    unsigned long id;
    std::uint32_t record, object;  ///< Ids of what FindStream and GetStreamInfoObject find; or 0.
  };
  for (const auto& [id, record, object] : {
           Case{0x00010001, 0x00010001, 0x00010001},  // Video.
           Case{0x0001000B, 0x0001000B, 0x0001000B},  // Audio; the first program's one of two.
           Case{0x00010015, 0x00010015, 0x00010015},  // Subpictures.
           Case{0xFF01000C, 0x0001000C, 0x0001000C},  // Bits 24 to 31 do not matter.
           Case{0x0002000B, 0, 0},                    // There is no such program.
           Case{0x00010030, 0, 0},                    // Program 0x101 is not program 1.
           Case{0x00050030, 0, 0x00050030},           // No program 5, but a stream with that id.
           Case{0x01050030, 0, 0x00050030},
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
  const Program first(1, 1, 1, 1), second(2, 0, 2, 0);
  const File file{&first, &second};
  const auto info = Make<CMediaInfo>();
  ASSERT_EQ(info->Fill(&file.record), S_OK);
  constexpr unsigned long kAudio = 0x1000B, kSubPic = 0x10015, kOther = 0x2000C, kNone = 0x30001;
  IMediaSetting& setting = *info;
  const auto choices = [&](unsigned long id) {
    unsigned int lossless = 44;
    unsigned long channel = 55;
    const std::int32_t selected = setting.IsStreamSelected(id, &lossless, &channel);
    return std::vector<long>{selected, static_cast<long>(lossless), static_cast<long>(channel)};
  };
  using Choices = std::vector<long>;
  EXPECT_EQ(choices(kNone), (Choices{0, 44, 55}));
  EXPECT_EQ(choices(kAudio), (Choices{0, 0, -1}));
  EXPECT_EQ(setting.SelectStream(kAudio, 1, 3), S_OK);
  EXPECT_EQ(choices(kAudio), (Choices{1, 1, 3}));
  EXPECT_EQ(setting.IsStreamSelected(kAudio, nullptr, nullptr), 1);
  EXPECT_EQ(setting.ClearSelectStream(kAudio), S_OK);
  EXPECT_EQ(choices(kAudio), (Choices{0, 1, 3})) << "clearing leaves the other choices";
  EXPECT_EQ(setting.UpdateStreamSetting(kAudio, 7), S_OK);
  EXPECT_EQ(choices(kAudio), (Choices{1, 7, 3})) << "updating selects";
  for (const unsigned long unknown : {0x20015UL, kNone}) {
    EXPECT_EQ(setting.SelectStream(unknown, 0, 0), S_FALSE);
    EXPECT_EQ(setting.UpdateStreamSetting(unknown, 0), S_FALSE);
    EXPECT_EQ(setting.ClearSelectStream(unknown), S_FALSE);
  }

  EXPECT_EQ(setting.SelectStream(kSubPic, 5, 0), S_OK);
  EXPECT_EQ(setting.SelectStream(kOther, 5, 0), S_OK);
  const std::pair<unsigned long, int> counts[] = {
      {0, 0}, {1, 1}, {2, 1}, {3, 0}, {0xFFFFFFFE, 0}, {0xFFFFFFFF, 2}, {ULONG_MAX, 2}};
  for (const auto& [number, count] : counts) {
    EXPECT_EQ(info->GetSelectStreamNumber(number), count) << number;
  }
  EXPECT_EQ(info->UpdateAllStream(9), S_OK);
  EXPECT_EQ(choices(kAudio)[1], 9);
  EXPECT_EQ(choices(kOther)[1], 9);
  EXPECT_EQ(choices(kSubPic)[1], 5) << "subpictures are left out";
  EXPECT_EQ(choices(0x10001)[1], 0) << "not selected";
  EXPECT_EQ(info->GetStreamInfoObject(kAudio)->IsLosslessProcess(), 9);

  unsigned long length = 66;
  StreamInfo* audio = info->FindStream(kAudio);
  audio->extraDataLength = 0;
  EXPECT_EQ(setting.GetExtraData(kNone, &length), nullptr);
  EXPECT_EQ(setting.GetExtraData(kAudio, nullptr), nullptr);
  EXPECT_EQ(setting.GetExtraData(kAudio, &length), nullptr);
  EXPECT_EQ(length, 66U);
  audio->extraDataLength = 1;
  EXPECT_EQ(setting.GetExtraData(kAudio, &length), audio->extraData);
  EXPECT_EQ(length, 1U);
}

TEST_F(MediaInfoTest, KeepsTrimSegmentsInOrder) {
  const auto info = Make<CMediaInfo>();
  const STrimSegment first{{1, -2, INT64_MAX, 4}}, second{{5, 6, 7, INT64_MIN}}, none{};
  const auto equal = [](const STrimSegment& a, const STrimSegment& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
  };
  EXPECT_TRUE(equal(info->AddTrimSegment(first, 8, 9), first));
  for (int count = 0; count < 2; ++count) {
    FailAllocationAfter(count);
    EXPECT_TRUE(equal(info->AddTrimSegment(second, 0, 0), second));
    EXPECT_EQ(info->GetTrimSegmentNumber(), 1U) << "memory was short";
  }
  info->AddTrimSegment(second, 0, 0);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 2U);
  EXPECT_TRUE(equal(info->GetTrimSegment(0), first));
  EXPECT_TRUE(equal(info->GetTrimSegment(1), second));
  EXPECT_TRUE(equal(info->GetTrimSegment(2), none));
  EXPECT_TRUE(equal(info->GetTrimSegment(ULONG_MAX), none));
  EXPECT_EQ(info->RemoveAllTrimSegments(), S_OK);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 0U);
  info->AddTrimSegment(first, 0, 0);  // Freed with the object.
}

}  // namespace
