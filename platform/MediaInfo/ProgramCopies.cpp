#include <cstring>
#include <new>

#include "zel/mediainfo/ProgramRecords.h"
#include "zel/platform/MediaInfoLibrary.h"

namespace {

void FreeStreams(StreamInfo* streams, std::int32_t count) {
  if (streams == nullptr) return;
  for (std::int32_t i = 0; i < count; ++i) delete[] streams[i].extraData;
  delete[] streams;
}

/// Replaces an array that still belongs to the original record by a copy. An empty array becomes
/// null with a count of 0.
/// @return false when memory is short; the array holds the streams copied so far.
bool CloneStreams(StreamInfo*& streams, std::int32_t& count) {
  const StreamInfo* const from = streams;
  const std::int32_t wanted = from != nullptr && count > 0 ? count : 0;
  streams = nullptr;
  count = 0;
  if (wanted == 0) return true;

  streams = new (std::nothrow) StreamInfo[static_cast<std::size_t>(wanted)];
  if (streams == nullptr) return false;
  for (; count < wanted; ++count) {
    StreamInfo& copy = streams[count];
    copy = from[count];
    const unsigned char* const data = copy.extraData;
    copy.extraData = nullptr;
    if (data == nullptr || copy.extraDataLength == 0) {
      copy.extraDataLength = 0;
      continue;
    }
    copy.extraData = new (std::nothrow) unsigned char[copy.extraDataLength];
    if (copy.extraData == nullptr) return false;
    std::memcpy(copy.extraData, data, copy.extraDataLength);
  }
  return true;
}

}  // namespace

extern "C" ProgramInfo* CloneProgramInfo(const ProgramInfo* info) {
  if (info == nullptr) return nullptr;
  auto* copy = new (std::nothrow) ProgramInfo(*info);
  if (copy == nullptr) return nullptr;
  // Replace all three even after a failure: none may still belong to the original.
  const bool video = CloneStreams(copy->videoStreams, copy->videoStreamCount);
  const bool audio = CloneStreams(copy->audioStreams, copy->audioStreamCount);
  const bool subPic = CloneStreams(copy->subPicStreams, copy->subPicStreamCount);
  if (video && audio && subPic) return copy;
  FreeProgramInfo(copy);
  return nullptr;
}

extern "C" void FreeProgramInfo(ProgramInfo* info) {
  if (info == nullptr) return;
  FreeStreams(info->videoStreams, info->videoStreamCount);
  FreeStreams(info->audioStreams, info->audioStreamCount);
  FreeStreams(info->subPicStreams, info->subPicStreamCount);
  delete info;
}
