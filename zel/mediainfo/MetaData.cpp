#include "zel/mediainfo/MetaData.h"

MetaDataInfo* CreateNewMetaData() {
  return nullptr;
}

void MetaData_Info_Release(MetaDataInfo* /*info*/) {}
