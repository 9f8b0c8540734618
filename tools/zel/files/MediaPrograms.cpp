#include "tools/zel/files/MediaPrograms.h"

#include <cstdio>
#include <utility>

#include "media/Utf8.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/text/Failure.h"
#include "zel/platform/COMSupport.h"

namespace zel::tool {
namespace {

template <class Item, class List>
std::vector<Ref<Item>> ItemsOf(List* list) {
  std::vector<Ref<Item>> items;
  for (int i = 0; list != nullptr && i < list->GetCount(); ++i) {
    Ref<Item> item;
    list->GetItem(i, item.Receive());
    if (item) items.push_back(std::move(item));
  }
  return items;
}

}  // namespace

void CheckMemory(const std::string& path, HRESULT result) {
  if (result == E_OUTOFMEMORY) throw Failure(path, "takes more memory than there is");
}

Ref<IMediaInfo> OpenMedia(IMediaDecoderMgr* manager, const std::string& path) {
  Ref<IMediaInfo> media;
  CheckMemory(path, manager->OpenMediaInfo(media::ToWide(path).c_str(), 11, media.Receive()));
  if (!media) throw Failure(path, WhyNotOpened(path));
  return media;
}

std::vector<Ref<IProgramInfo>> ProgramsOf(IMediaInfo* media) {
  Ref<IProgramInfos> list;
  media->GetIPrograms(list.Receive());
  return ItemsOf<IProgramInfo>(list.get());
}

std::vector<Ref<IStreamInfo>> StreamsOf(IProgramInfo* program, StreamKind kind) {
  Ref<IStreamInfos> list;
  switch (kind) {
    case StreamKind::kVideo:
      program->GetVideoStreamInfos(list.Receive());
      break;
    case StreamKind::kAudio:
      program->GetAudioStreamInfos(list.Receive());
      break;
    case StreamKind::kSubPicture:
      program->GetSubPicStreamInfos(list.Receive());
      break;
  }
  return ItemsOf<IStreamInfo>(list.get());
}

std::string IdText(std::uint32_t id) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%X", static_cast<unsigned>(id));
  return text;
}

std::string TakeText(wchar_t* text) {
  std::string narrow = text != nullptr ? media::ToUtf8(text) : "unknown";
  SysFreeString(text);
  return narrow;
}

}  // namespace zel::tool
