// Metadata entry points that hosts link against. The library has no metadata objects.
//
//   MetaDataInfo* none = CreateNewMetaData();  // null
//   MetaData_Info_Release(none);
//
// Threads: any thread, at any time.
#pragma once

#include "zel/platform/Types.h"

struct MetaDataInfo;

/// @return null: there are no metadata objects.
ZEL_API MetaDataInfo* CreateNewMetaData();
/// Does nothing; any pointer will do.
ZEL_API void MetaData_Info_Release(MetaDataInfo* info);
