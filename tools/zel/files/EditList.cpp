#include "tools/zel/files/EditList.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace zel::tool {
namespace {

/// A box without its head, and where it lies in the file.
struct Box {
  std::int64_t at = 0;
  std::int64_t size = -1;  ///< Negative: there is none.
};

/// The boxes of one kind between `at` and `end`, as long as the boxes are well formed.
std::vector<Box> Find(PendingFile* file, std::string_view kind, Box in) {
  std::vector<Box> found;
  const std::int64_t end = in.at + in.size;
  for (std::int64_t at = in.at; at + 8 <= end;) {
    std::uint8_t head[16] = {};
    if (file->ReadAt(at, head, sizeof(head)) < 0) break;
    const bool isLong = AV_RB32(head) == 1;
    const std::int64_t length = isLong ? 16 : 8;
    const auto size = static_cast<std::int64_t>(isLong ? AV_RB64(head + 8) : AV_RB32(head));
    if (size < length || size > end - at) break;
    if (kind == std::string_view(reinterpret_cast<const char*>(head) + 4, 4)) {
      found.push_back({at + length, size - length});
    }
    at += size;
  }
  return found;
}

/// The first box on a way of kinds.
Box FindOne(PendingFile* file, std::initializer_list<std::string_view> way, Box in) {
  for (const std::string_view kind : way) {
    const std::vector<Box> found = Find(file, kind, in);
    if (found.empty()) return {};
    in = found.front();
  }
  return in;
}

/// Cuts off `samples` of a track whose edit list is an empty part and all of the track.
/// @param units `samples` in units of the movie's time scale
int CutPart(PendingFile* file, Box list, std::int64_t samples, std::int64_t units) {
  std::uint8_t data[48] = {};
  if (list.size < 0) return 0;
  if (const int read = file->ReadAt(list.at, data, sizeof(data)); read < 0) return read;
  const bool isWide = data[0] == 1;
  const int width = isWide ? 8 : 4;
  constexpr int kHead = 8;
  const int entry = 2 * width + 4;
  const auto get = [&](int i) {
    return isWide ? static_cast<std::int64_t>(AV_RB64(data + i))
                  : static_cast<std::int32_t>(AV_RB32(data + i));
  };
  const auto set = [&](int i, std::int64_t value) {
    if (isWide) {
      AV_WB64(data + i, static_cast<std::uint64_t>(value));
    } else {
      AV_WB32(data + i, static_cast<std::uint32_t>(value));
    }
  };
  const int second = kHead + entry;
  if (AV_RB32(data + 4) != 2 || get(kHead + width) != -1 || get(second + width) != 0) return 0;
  if (units >= get(second)) return 0;
  set(kHead, get(kHead) + units);
  set(second, get(second) - units);
  set(second + width, samples);
  if (const std::int64_t place = file->Seek(list.at, SEEK_SET); place < 0) {
    return static_cast<int>(place);
  }
  return file->Write(data, kHead + 2 * entry);
}

/// The index of the stream that a track holds, or a negative errno. The muxer's ids count from 1.
std::int64_t StreamOf(PendingFile* file, Box track) {
  const Box head = FindOne(file, {"tkhd"}, track);
  std::uint8_t data[24] = {};
  if (head.size < 0) return -EINVAL;
  if (const int read = file->ReadAt(head.at, data, sizeof(data)); read < 0) return read;
  // Two times come before the id: of 64 bits each in version 1.
  return std::int64_t{AV_RB32(data + (data[0] == 1 ? 20 : 12))} - 1;
}

}  // namespace

int CutPriming(PendingFile* file, const std::vector<int>& priming, int movieRate,
               const std::vector<int>& rates) {
  const Box movie = FindOne(file, {"moov"}, {0, file->Size()});
  if (movie.size < 0) return 0;
  // A stream without packets has no track.
  for (const Box track : Find(file, "trak", movie)) {
    const std::int64_t stream = StreamOf(file, track);
    if (stream < 0 || stream >= static_cast<std::int64_t>(priming.size())) continue;
    const auto i = static_cast<std::size_t>(stream);
    if (priming[i] <= 0 || rates[i] <= 0) continue;
    const Box list = FindOne(file, {"edts", "elst"}, track);
    const auto units = static_cast<std::int64_t>(priming[i]) * movieRate / rates[i];
    if (const int result = CutPart(file, list, priming[i], units); result < 0) return result;
  }
  return 0;
}

}  // namespace zel::tool
