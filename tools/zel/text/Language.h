// Languages as MP4 and QuickTime files store them.
#pragma once

#include <string>

namespace zel::tool {

/// The code by which FFmpeg's muxer stores the language `code` of ISO 639-2, of which some have two
/// codes: `deu` and `ger`.
/// @param isQuickTime QuickTime has numbers for some languages; MP4 takes any code of three letters
/// @return empty when the language cannot be stored
std::string StorableLanguage(const std::string& code, bool isQuickTime);

}  // namespace zel::tool
