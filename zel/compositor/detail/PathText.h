// Paths for the system from wide strings, by a rule of their own rather than by the C locale.
#pragma once

#include <cstddef>

namespace zel {

/// Bytes that a path may have at the most, its terminator not counted.
constexpr std::size_t kMaxPathBytes = 2047;

/// Writes the UTF-8 form of `path` (UTF-32, zero-terminated) with its terminator to `out`. Values
/// from 0x110000 up become U+FFFD. What would pass kMaxPathBytes is cut before the first character
/// that does not fit whole.
/// @return bytes written, the terminator not counted.
std::size_t PathToUtf8(const wchar_t* path, char (&out)[kMaxPathBytes + 1]);

}  // namespace zel
