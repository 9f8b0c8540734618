#include "media/Completeness.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

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
  std::uint64_t at = 4;
  const std::int64_t header = MatroskaSize(file, &at);
  if (header < 0 || file.Lacks(at, static_cast<std::uint64_t>(header))) return false;
  at += static_cast<std::uint64_t>(header);
  constexpr std::uint64_t kSegment = 0x18538067;
  if (file.Big(at, 4) != kSegment) return false;
  at += 4;
  const std::int64_t size = MatroskaSize(file, &at);
  return size >= 0 && file.Lacks(at, static_cast<std::uint64_t>(size));
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

}  // namespace

bool IsCutOff(const MediaFile& file) {
  const Bytes bytes(file);
  if (file.IsFormat("wav")) return WaveIsCut(bytes);
  if (file.IsFormat("w64")) return Wave64IsCut(bytes);
  if (file.IsFormat("avi")) return AviIsCut(bytes);
  if (file.IsFormat("mp4")) return Mp4IsCut(bytes);
  if (file.IsFormat("matroska")) return MatroskaIsCut(bytes);
  return file.IsFormat("ogg") && OggIsCut(file);
}

bool MarksShortReads(const MediaFile& file) {
  for (const char* name : {"wav", "w64", "aiff", "au", "caf"}) {
    if (file.IsFormat(name)) return true;
  }
  return false;
}

}  // namespace zel::media
