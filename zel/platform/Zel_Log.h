// What the library expects of the `Zel_Log` library: the application's folder.
//
//   wchar_t folder[512] = {};
//   GetAppPath(folder, 512);
#pragma once

#include "zel/platform/Types.h"

/// Writes the folder of the running executable as a zero-terminated wide string (UTF-32), with
/// links resolved and without a slash at its end. Writes an empty string when the folder is not
/// known or does not fit. Threads: any.
/// @param buffer room for `capacity` characters, the terminator included.
extern "C" ZEL_API void GetAppPath(wchar_t* buffer, int capacity);
