// Metadata entry points. The library has no metadata objects; hosts link against these names.
#pragma once

#include "zel/platform/Types.h"

struct MetaDataInfo;

/// @return null: there are no metadata objects.
ZEL_API MetaDataInfo* CreateNewMetaData();
/// Does nothing; any pointer will do.
ZEL_API void MetaData_Info_Release(MetaDataInfo* info);
