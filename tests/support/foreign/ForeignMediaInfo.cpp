// libMediaInfo.so. A copy is one block, with its streams and their private data behind the record.
#include <cstdlib>
#include <cstring>

#include "tests/support/foreign/Counted.h"
#include "zel/mediainfo/ProgramRecords.h"
#include "zel/platform/MediaInfoLibrary.h"

FOREIGN_COUNTER(CloneProgramInfo);
FOREIGN_COUNTER(FreeProgramInfo);

namespace {

std::size_t DataSize(const StreamInfo* streams, int count) {
  std::size_t size = 0;
  for (int i = 0; i < count; ++i) size += sizeof(StreamInfo) + streams[i].extraDataLength;
  return size;
}

StreamInfo* Copy(const StreamInfo* streams, int count, unsigned char** data, StreamInfo** next) {
  StreamInfo* const copies = *next;
  *next += count;
  for (int i = 0; i < count; ++i) {
    std::memcpy(&copies[i], &streams[i], sizeof(StreamInfo));
    if (streams[i].extraDataLength == 0) continue;
    std::memcpy(*data, streams[i].extraData, streams[i].extraDataLength);
    copies[i].extraData = *data;
    *data += streams[i].extraDataLength;
  }
  return copies;
}

}  // namespace

ProgramInfo* CloneProgramInfo(const ProgramInfo* info) {
  ++CloneProgramInfo_calls;
  const std::size_t size = sizeof(ProgramInfo) + alignof(StreamInfo) +
                           DataSize(info->videoStreams, info->videoStreamCount) +
                           DataSize(info->audioStreams, info->audioStreamCount) +
                           DataSize(info->subPicStreams, info->subPicStreamCount);
  auto* copy = static_cast<ProgramInfo*>(std::malloc(size));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, info, sizeof(ProgramInfo));
  static_assert(sizeof(ProgramInfo) % alignof(StreamInfo) == 0);
  auto* next = reinterpret_cast<StreamInfo*>(copy + 1);
  auto* data = reinterpret_cast<unsigned char*>(next + info->videoStreamCount +
                                                info->audioStreamCount + info->subPicStreamCount);
  copy->videoStreams = Copy(info->videoStreams, info->videoStreamCount, &data, &next);
  copy->audioStreams = Copy(info->audioStreams, info->audioStreamCount, &data, &next);
  copy->subPicStreams = Copy(info->subPicStreams, info->subPicStreamCount, &data, &next);
  return copy;
}

void FreeProgramInfo(ProgramInfo* info) {
  ++FreeProgramInfo_calls;
  std::free(info);
}
