// What the library expects of the `MediaInfo` library: copies of program records.
//
//   ProgramInfo* copy = CloneProgramInfo(&record);
//   FreeProgramInfo(copy);
//
// Threads: any thread may call, each with records that no other thread changes.
#pragma once

#include "zel/platform/Types.h"

struct ProgramInfo;

extern "C" {

/// Returns an independently owned deep copy of a program record, its three stream arrays and each
/// stream's extra data included; free it with FreeProgramInfo. Null for null.
ZEL_API ProgramInfo* CloneProgramInfo(const ProgramInfo* info);
/// Frees a copy made by CloneProgramInfo and all that it points to; null is allowed.
ZEL_API void FreeProgramInfo(ProgramInfo* info);

}  // extern "C"
