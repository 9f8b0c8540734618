#include "zel/compositor/detail/PathText.h"

#include <cstdint>

namespace zel {

std::size_t PathToUtf8(const wchar_t* path, char (&out)[kMaxPathBytes + 1]) {
  std::size_t used = 0;
  for (; *path != L'\0'; ++path) {
    auto value = static_cast<std::uint32_t>(*path);
    if (value >= 0x110000) value = 0xFFFD;
    const unsigned more = value < 0x80 ? 0 : value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    if (used + 1 + more > kMaxPathBytes) break;
    constexpr std::uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    out[used++] = static_cast<char>(kLead[more] | value >> (6 * more));
    for (unsigned left = more; left-- > 0;) {
      out[used++] = static_cast<char>(0x80 | ((value >> (6 * left)) & 0x3F));
    }
  }
  out[used] = '\0';
  return used;
}

}  // namespace zel
