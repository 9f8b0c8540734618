// Converts file names and texts between UTF-8 (files, terminals, FFmpeg) and UTF-32 wide strings
// (interfaces).
//
//   manager->OpenMediaInfo(media::ToWide(path).c_str(), 11, info.Receive());
//
// A byte that belongs to no UTF-8 sequence becomes U+DC80 to U+DCFF and turns back into that byte.
// So every file name of the system survives the way there and back. Any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zel::media {

/// Decodes the first character of `text` (not empty).
/// @param size receives the number of bytes decoded, at least 1
inline wchar_t DecodeFirst(std::string_view text, std::size_t& size) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  size = 1;
  if (lead < 0x80) return static_cast<wchar_t>(lead);
  const auto stray = static_cast<wchar_t>(0xDC00 + lead);
  if (lead < 0xC2 || lead > 0xF4) return stray;
  const std::size_t more = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  if (text.size() <= more) return stray;
  std::uint32_t value = lead & (0x3FU >> more);
  for (std::size_t i = 1; i <= more; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return stray;
    value = value << 6 | (byte(i) & 0x3FU);
  }
  constexpr std::uint32_t smallest[] = {0, 0x80, 0x800, 0x10000};
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < smallest[more] || value > 0x10FFFF || surrogate) return stray;
  size = more + 1;
  return static_cast<wchar_t>(value);
}

/// Converts UTF-8 to UTF-32.
inline std::wstring ToWide(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  while (!text.empty()) {
    std::size_t size = 0;
    wide.push_back(DecodeFirst(text, size));
    text.remove_prefix(size);
  }
  return wide;
}

/// Converts UTF-32 to UTF-8. Values that are not Unicode characters become U+FFFD.
inline std::string ToUtf8(std::wstring_view wide) {
  std::string text;
  text.reserve(wide.size());
  for (const wchar_t c : wide) {
    auto value = static_cast<std::uint32_t>(c);
    if (value >= 0xDC80 && value <= 0xDCFF) {
      text.push_back(static_cast<char>(value - 0xDC00));
      continue;
    }
    if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) value = 0xFFFD;
    if (value < 0x80) {
      text.push_back(static_cast<char>(value));
      continue;
    }
    const int more = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    constexpr std::uint32_t marks[] = {0, 0xC0, 0xE0, 0xF0};
    text.push_back(static_cast<char>(marks[more] | value >> (6 * more)));
    for (int i = more - 1; i >= 0; --i) {
      text.push_back(static_cast<char>(0x80U | ((value >> (6 * i)) & 0x3FU)));
    }
  }
  return text;
}

}  // namespace zel::media
