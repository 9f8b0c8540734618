// Makes paths for the system from wide strings, whatever the C locale is. The room `media` converts
// text, too, but it belongs to the decoder and the command; the library must not depend on it.
#pragma once

#include <cstddef>

namespace zel {

/// The most bytes that a path may have, its terminator not counted.
constexpr std::size_t kMaxPathBytes = 2047;

/// Writes the UTF-8 form of `path` (UTF-32, zero-terminated) with its terminator to `out`. Values
/// from 0x110000 up become U+FFFD. A text that is too long is cut before the first character that
/// does not fit in kMaxPathBytes.
/// @return bytes written, the terminator not counted.
std::size_t PathToUtf8(const wchar_t* path, char (&out)[kMaxPathBytes + 1]);

}  // namespace zel
