#include "media/Completeness.h"

extern "C" {
#include <libavcodec/ac3_parser.h>
#include <libavutil/intreadwrite.h>
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace zel::media {
namespace {

/// Reads numbers from a file. Past its end, all bytes are 0.
class Bytes {
 public:
  explicit Bytes(const MediaFile& file) : file_(file) {}

  std::uint64_t size() const { return static_cast<std::uint64_t>(file_.size()); }
  std::uint64_t Little(std::uint64_t at, int count) const { return Number(at, count, false); }
  std::uint64_t Big(std::uint64_t at, int count) const { return Number(at, count, true); }
  bool Is(std::uint64_t at, std::string_view text) const {
    char found[16] = {};
    file_.ReadAt(at, found, text.size());
    return text == std::string_view(found, text.size());
  }
  std::string Text(std::uint64_t at, std::uint64_t length) const {
    std::string text(static_cast<std::size_t>(std::min(length, size() - std::min(at, size()))), 0);
    file_.ReadAt(at, text.data(), text.size());
    return text;
  }
  /// True when the file ends before `start` + `length`.
  bool Lacks(std::uint64_t start, std::uint64_t length) const {
    return start > size() || length > size() - start;
  }

 private:
  std::uint64_t Number(std::uint64_t at, int count, bool bigEndian) const {
    unsigned char bytes[8] = {};
    file_.ReadAt(at, bytes, static_cast<std::size_t>(count));
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | bytes[bigEndian ? i : count - 1 - i];
    return value;
  }

  const MediaFile& file_;
};

// Sizes that mean "unknown": 0, or close to the most that 31 or 32 bits can hold.
bool IsPlaceholder(std::uint64_t size) {
  return size == 0 || (size >= 0x7FFFF000 && size <= 0x7FFFFFFF) ||
         (size >= 0xFFFFF000 && size <= 0xFFFFFFFF);
}

bool WaveIsCut(const Bytes& file) {
  std::uint64_t wideSize = 0;
  for (std::uint64_t at = 12; at + 8 <= file.size();) {
    std::uint64_t size = file.Little(at + 4, 4);
    if (file.Is(at, "ds64")) wideSize = file.Little(at + 16, 8);
    if (file.Is(at, "data")) {
      if (size == 0xFFFFFFFF && wideSize != 0) size = wideSize;
      return !IsPlaceholder(size) && file.Lacks(at + 8, size);
    }
    at += 8 + size + size % 2;
  }
  return false;
}

bool AuIsCut(const Bytes& file) {
  const std::uint64_t size = file.Big(8, 4);
  return !IsPlaceholder(size) && file.Lacks(file.Big(4, 4), size);
}

bool CafIsCut(const Bytes& file) {
  for (std::uint64_t at = 8; at + 12 <= file.size();) {
    const std::uint64_t size = file.Big(at + 4, 8);
    if (size > INT64_MAX) return false;  // Up to the end of the file.
    if (file.Lacks(at + 12, size)) return file.Is(at, "data");
    at += 12 + size;
  }
  return false;
}

// A chunk starts with a 128-bit id and a 64-bit size that includes these 24 bytes.
bool Wave64IsCut(const Bytes& file) {
  for (std::uint64_t at = 40; at + 24 <= file.size();) {
    const std::uint64_t size = file.Little(at + 16, 8);
    if (file.Is(at, "data")) return file.Lacks(at, size);
    if (size < 24 || file.Lacks(at, size)) return false;
    at += (size + 7) / 8 * 8;
  }
  return false;
}

bool AviIsCut(const Bytes& file) {
  for (std::uint64_t at = 0; file.Is(at, "RIFF");) {
    const std::uint64_t size = file.Little(at + 4, 4);
    if (IsPlaceholder(size)) return false;
    if (file.Lacks(at + 8, size)) return true;
    at += 8 + size + size % 2;
  }
  return false;
}

bool Mp4IsCut(const Bytes& file) {
  for (std::uint64_t at = 0; at + 8 <= file.size();) {
    std::uint64_t size = file.Big(at, 4);
    if (size == 1) size = file.Big(at + 8, 8);
    if (size < 8) return false;  // 0 means up to the end of the file.
    // Anything else may be data that was appended to the file.
    if (file.Lacks(at, size)) {
      return file.Is(at + 4, "mdat") || file.Is(at + 4, "moof") || file.Is(at + 4, "moov");
    }
    at += size;
  }
  return false;
}

/// True when one of the boxes from `at` to `end` lists fewer sample sizes than sample durations:
/// FFmpeg then shows the last sample for the rest of the time.
/// @param level how many boxes they are in
bool Mp4IndexIsShort(const Bytes& file, std::uint64_t at, std::uint64_t end,
                     std::size_t level = 0) {
  constexpr std::string_view kWay[] = {"moov", "trak", "mdia", "minf", "stbl"};
  constexpr std::uint64_t kMostTimes = 1 << 20;
  constexpr std::uint64_t kSlack = 2;  // Some writers count a sample that they do not store.
  std::uint64_t times = 0;
  std::uint64_t samples = UINT64_MAX;
  while (at + 8 <= end) {
    std::uint64_t head = 8;
    std::uint64_t size = file.Big(at, 4);
    if (size == 1) {
      size = file.Big(at + 8, 8);
      head = 16;
    }
    if (size < head || size > end - at) break;
    if (level < std::size(kWay)) {
      if (file.Is(at + 4, kWay[level]) && Mp4IndexIsShort(file, at + head, at + size, level + 1)) {
        return true;
      }
    } else if (file.Is(at + 4, "stsz") || file.Is(at + 4, "stz2")) {
      samples = file.Big(at + head + 8, 4);
    } else if (file.Is(at + 4, "stts")) {
      const std::uint64_t count = std::min(file.Big(at + head + 4, 4), kMostTimes);
      const std::string entries = file.Text(at + head + 8, std::min(count * 8, size));
      for (std::size_t i = 0; i + 8 <= entries.size(); i += 8) times += AV_RB32(&entries[i]);
    }
    at += size;
  }
  return samples < times && times - samples > kSlack;
}

/// Reads a size of 1 to 8 bytes; its leading zero bits give the count of bytes. Moves `at` past it.
/// @return -1 for an invalid size and for the unknown one, whose bits are all 1
std::int64_t MatroskaSize(const Bytes& file, std::uint64_t* at) {
  const std::uint64_t first = file.Big(*at, 1);
  int length = 1;
  while (length <= 8 && (first << (length - 1) & 0x80) == 0) ++length;
  if (length > 8) return -1;
  const std::uint64_t mask = (std::uint64_t{1} << (7 * length)) - 1;
  const std::uint64_t size = file.Big(*at, length) & mask;
  *at += static_cast<std::uint64_t>(length);
  return size == mask ? -1 : static_cast<std::int64_t>(size);
}

bool MatroskaIsCut(const Bytes& file) {
  constexpr std::uint64_t kSegment = 0x18538067;
  constexpr std::uint64_t kCluster = 0x1F43B675;
  for (std::uint64_t at = 0; at < file.size();) {
    int length = 1;
    while (length <= 4 && (file.Big(at, 1) << (length - 1) & 0x80) == 0) ++length;
    if (length > 4) return false;
    const std::uint64_t id = file.Big(at, length);
    at += static_cast<std::uint64_t>(length);
    const std::int64_t size = MatroskaSize(file, &at);
    // Files written into a pipe have a segment and clusters of unknown size. Their elements have
    // known sizes.
    if (size < 0 && (id == kSegment || id == kCluster)) continue;
    if (size < 0) return false;
    if (file.Lacks(at, static_cast<std::uint64_t>(size))) return true;
    if (id == kSegment) return false;
    at += static_cast<std::uint64_t>(size);
  }
  return false;
}

bool OggIsCut(const MediaFile& file) {
  // The last page is no larger than this, so it starts in the tail of that size.
  constexpr std::uint64_t kLargest = 27 + 255 + 255 * 255;
  const auto size = static_cast<std::uint64_t>(file.size());
  const std::uint64_t start = size > kLargest ? size - kLargest : 0;
  std::string tail(size - start, '\0');
  file.ReadAt(start, tail.data(), tail.size());
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(tail[i]); };
  // The signature and version 0. The rest of the header may be missing.
  const std::size_t page = tail.rfind(std::string_view("OggS\0", 5));
  if (page == std::string::npos) return false;
  if (page + 27 > tail.size()) return true;
  std::size_t end = page + 27 + byte(page + 26);
  for (std::size_t i = 0; i < byte(page + 26) && page + 27 + i < tail.size(); ++i) {
    end += byte(page + 27 + i);
  }
  return end > tail.size();
}

bool AsfIsCut(const Bytes& file) {
  constexpr std::string_view kProperties = "\xA1\xDC\xAB\x8C\x47\xA9\xCF\x11";
  constexpr std::uint64_t kBroadcast = 1;
  const std::uint64_t header = file.Little(16, 8);
  if (file.Lacks(0, header)) return false;
  for (std::uint64_t at = 30; at + 104 <= header;) {
    if (file.Is(at, kProperties)) {
      const std::uint64_t packets = file.Little(at + 56, 8);
      const std::uint64_t size = file.Little(at + 96, 4);
      if ((file.Little(at + 88, 4) & kBroadcast) != 0) return false;
      // The packets follow the data object's head.
      return size > 0 && packets > 0 &&
             (packets > file.size() / size || file.Lacks(header + 50, packets * size));
    }
    const std::uint64_t size = file.Little(at + 16, 8);
    if (size < 24 || size > header - at) return false;
    at += size;
  }
  return false;
}

/// A tag has a head of 11 bytes, and its size with the head in the 4 bytes behind it.
bool FlvIsCut(const MediaFile& media, const Bytes& file) {
  constexpr std::uint64_t kTail = 1 << 22;
  constexpr std::uint64_t kHead = 11;
  constexpr long double kSlack = 1;  // Seconds: the last picture may be shown that long.
  const std::uint64_t start = file.size() - std::min(file.size(), kTail);
  const std::string tail = file.Text(start, kTail);
  const auto isTag = [&](std::size_t i) {
    return (tail[i] == 8 || tail[i] == 9 || tail[i] == 18) && AV_RB24(&tail[i + 8]) == 0;
  };
  /// Where the tag before the one at `at` starts; 0 when none of the right size is there.
  const auto before = [&](std::size_t at) -> std::size_t {
    const std::uint64_t size = at >= 4 + kHead ? AV_RB32(&tail[at - 4]) : 0;
    if (size < kHead || size > at - 4) return 0;
    const std::size_t found = at - 4 - size;
    return isTag(found) && AV_RB24(&tail[found + 1]) + kHead == size ? found : 0;
  };
  std::size_t at = tail.size() - std::min<std::size_t>(tail.size(), kHead);
  while (at > 0 && !(isTag(at) && before(at) != 0)) --at;
  if (at == 0) return false;
  const std::size_t end = at + kHead + AV_RB24(&tail[at + 1]) + 4;
  if (end > tail.size() + 4) return true;
  // The beginning of another head.
  if (end < tail.size() && (tail[end] == 8 || tail[end] == 9)) return true;
  const std::int64_t length = media.format()->duration;
  // The very last tag may only say that there is no more video.
  std::uint32_t latest = 0;
  for (int i = 0; i < 1000 && at != 0; ++i, at = before(at)) {
    // The lower 24 bits come first.
    const std::uint32_t time = AV_RB24(&tail[at + 4]) | std::uint32_t{AV_RB8(&tail[at + 7])} << 24;
    latest = std::max(latest, time);
  }
  return length != AV_NOPTS_VALUE && static_cast<long double>(latest) / 1000 + kSlack <
                                         static_cast<long double>(length) / AV_TIME_BASE;
}

/// Packets of 188 bytes, of 192 with a time in front, or of 204 with a checksum behind.
bool TransportStreamIsCut(const Bytes& file) {
  constexpr std::uint64_t kSync = 0x47;
  for (const auto& [size, offset] :
       {std::pair<std::uint64_t, std::uint64_t>{188, 0}, {192, 4}, {204, 0}}) {
    const std::uint64_t rest = file.size() % size;
    const std::uint64_t last = file.size() - rest;
    bool isRight = last >= size && file.Big(last - size + offset, 1) == kSync;
    for (std::uint64_t i = 0; i < 4 && i * size < last; ++i) {
      isRight = isRight && file.Big(i * size + offset, 1) == kSync;
    }
    if (isRight) return rest != 0;
  }
  return false;
}

bool ProgramStreamIsCut(const Bytes& file) {
  constexpr std::uint64_t kLargest = 6 + 0xFFFF;
  const std::uint64_t start = file.size() - std::min(file.size(), kLargest + 3);
  const std::string tail = file.Text(start, kLargest + 3);
  // The codes of pictures are lower ones.
  for (std::size_t at = tail.size(); at-- > 0;) {
    at = tail.rfind(std::string_view("\0\0\1", 3), at);
    if (at == std::string::npos) return false;
    if (at + 6 > tail.size()) continue;
    const std::uint64_t code = file.Big(start + at + 3, 1);
    if (code == 0xBA) return false;
    if (code >= 0xBB) return file.Lacks(start + at + 6, file.Big(start + at + 4, 2));
  }
  return false;
}

std::uint64_t AdtsFrame(const Bytes& file, std::uint64_t at) {
  return (file.Big(at, 2) & 0xFFF6) == 0xFFF0 ? file.Big(at + 3, 3) >> 5 & 0x1FFF : 0;
}

std::uint64_t Ac3Frame(const Bytes& file, std::uint64_t at) {
  std::uint8_t id = 0;
  std::uint16_t size = 0;
  const std::string head = file.Text(at, 16);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(head.data());
  return av_ac3_parse_header(bytes, head.size(), &id, &size) == 0 ? size : 0;
}

/// Follows a bare stream from frame to frame. What follows the frames may be a tag.
/// @param size finds the size of the frame at an offset; 0: there is none
bool FramesAreCut(const Bytes& file, std::uint64_t (*size)(const Bytes&, std::uint64_t)) {
  std::uint64_t at = 0;
  while (at < file.size()) {
    const std::uint64_t frame = size(file, at);
    if (frame < 4) return false;
    if (file.Lacks(at, frame)) return true;
    at += frame;
  }
  return false;
}

/// Any bytes could be the sizes of MLP's and TrueHD's units, so the signature must return in time.
bool MlpIsCut(const Bytes& file) {
  constexpr int kMostUnits = 128;  // From one signature to the next.
  int units = kMostUnits;
  for (std::uint64_t at = 0; at < file.size();) {
    const std::uint64_t size = (file.Big(at, 2) & 0xFFF) * 2;
    const std::uint64_t signature = file.Big(at + 4, 4);
    units = signature == 0xF8726FBA || signature == 0xF8726FBB ? 0 : units + 1;
    if (size < 4 || units > kMostUnits) return false;
    if (file.Lacks(at, size)) return true;
    at += size;
  }
  return false;
}

}  // namespace

bool IsCutOff(const MediaFile& file) {
  const Bytes bytes(file);
  if (file.IsFormat("wav")) return WaveIsCut(bytes);
  if (file.IsFormat("w64")) return Wave64IsCut(bytes);
  if (file.IsFormat("avi")) return AviIsCut(bytes);
  if (file.IsFormat("mp4")) return Mp4IsCut(bytes) || Mp4IndexIsShort(bytes, 0, bytes.size());
  if (file.IsFormat("matroska")) return MatroskaIsCut(bytes);
  if (file.IsFormat("au")) return AuIsCut(bytes);
  if (file.IsFormat("caf")) return CafIsCut(bytes);
  if (file.IsFormat("asf")) return AsfIsCut(bytes);
  if (file.IsFormat("flv")) return FlvIsCut(file, bytes);
  if (file.IsFormat("mpegts")) return TransportStreamIsCut(bytes);
  if (file.IsFormat("mpeg")) return ProgramStreamIsCut(bytes);
  if (file.IsFormat("aac")) return FramesAreCut(bytes, AdtsFrame);
  if (file.IsFormat("ac3") || file.IsFormat("eac3")) return FramesAreCut(bytes, Ac3Frame);
  if (file.IsFormat("truehd") || file.IsFormat("mlp")) return MlpIsCut(bytes);
  return file.IsFormat("ogg") && OggIsCut(file);
}

bool MarksShortReads(const MediaFile& file) {
  for (const char* name : {"wav", "w64", "aiff", "au", "caf"}) {
    if (file.IsFormat(name)) return true;
  }
  return false;
}

}  // namespace zel::media
