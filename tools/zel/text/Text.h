// Texts of unknown origin, made fit for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace zel::tool {

/// `text`, UTF-8 in any script, with escapes in place of what is no text: control characters and
/// line ends (which could change a terminal's state, or forge lines), marks that reorder what comes
/// after them, and bytes that are not UTF-8. "\x1B", "\u202E"; a backslash stays as it is.
std::string Printable(std::string_view text);

/// JSON as a serialiser without ASCII escapes writes it, with those of Printable's characters that
/// such a serialiser leaves as they are escaped in JSON's way.
/// @param json valid UTF-8
std::string PrintableJson(std::string_view json);

}  // namespace zel::tool
