#include "zel/base/ClassFactory.h"
#include "zel/base/Ids.h"
#include "zel/compositor/detail/CompositorImpl.h"

const CFactoryTemplate g_Templates[] = {
    {L"Create AudioCompositor", &CLSID_CAudioCompositor, CreateInstance<CAudioCompositor>},
};
const int g_cTemplates = 1;
