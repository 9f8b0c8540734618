#include "tools/zel/text/Text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "media/Utf8.h"

namespace zel::tool {
namespace {

constexpr bool IsIn(std::uint32_t c, std::uint32_t first, std::uint32_t last) {
  return c >= first && c <= last;
}

bool IsControl(std::uint32_t c) {
  return c < 0x20 || IsIn(c, 0x7F, 0x9F) || IsIn(c, 0x2028, 0x202E) || IsIn(c, 0x2066, 0x2069) ||
         IsIn(c, 0xFFF9, 0xFFFB) || c == 0xFEFF;
}

std::string Escape(const char* format, std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), format, static_cast<unsigned>(value));
  return text;
}

/// Calls `replace(character)` for every character; where it returns nothing, the bytes stay.
template <class Replace>
std::string ReplaceCharacters(std::string_view text, Replace&& replace) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    std::size_t size = 0;
    const auto c = static_cast<std::uint32_t>(media::DecodeFirst(text, size));
    const std::string escape = replace(c);
    result += escape.empty() ? text.substr(0, size) : std::string_view(escape);
    text.remove_prefix(size);
  }
  return result;
}

}  // namespace

std::string Printable(std::string_view text) {
  return ReplaceCharacters(text, [](std::uint32_t c) -> std::string {
    if (IsIn(c, 0xDC80, 0xDCFF)) return Escape("\\x%02X", c - 0xDC00);
    if (!IsControl(c)) return {};
    return Escape(c < 0x80 ? "\\x%02X" : "\\u%04X", c);
  });
}

std::string PrintableJson(std::string_view json) {
  return ReplaceCharacters(json, [](std::uint32_t c) -> std::string {
    return c >= 0x7F && IsControl(c) ? Escape("\\u%04x", c) : std::string();
  });
}

}  // namespace zel::tool
