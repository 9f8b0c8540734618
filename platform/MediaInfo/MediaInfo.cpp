#include "zel/platform/MediaInfo.h"
