// What the library expects of the `Zel_Log` library.
#pragma once

#include "zel/platform/Types.h"

/// Writes the folder of the running executable, links resolved and without a trailing slash, as a
/// zero-terminated wide string (UTF-32).
/// @param buffer room for `capacity` characters, the terminator included; an empty string is
/// written
///   when the folder is not known or does not fit.
extern "C" ZEL_API void GetAppPath(wchar_t* buffer, int capacity);
