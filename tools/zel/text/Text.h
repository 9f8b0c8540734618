// Makes texts from files and command lines safe to print.
#pragma once

#include <string>
#include <string_view>

namespace zel::tool {

/// Escapes, in UTF-8 text of any script, control characters and line ends (which could change a
/// terminal's state, or forge lines), marks that reorder the text after them, and bytes that are
/// not UTF-8. Escapes look like "\x1B" and "\u202E"; a backslash stays as it is.
std::string Printable(std::string_view text);

/// Escapes, in JSON's own way, those of Printable's characters that a serialiser leaves unescaped
/// when it writes plain UTF-8.
/// @param json valid UTF-8
std::string PrintableJson(std::string_view json);

}  // namespace zel::tool
