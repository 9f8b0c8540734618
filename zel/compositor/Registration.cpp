#include "zel/base/ClassFactory.h"
#include "zel/base/Ids.h"

const CFactoryTemplate g_Templates[] = {{nullptr, nullptr, nullptr}};
const int g_cTemplates = 0;
