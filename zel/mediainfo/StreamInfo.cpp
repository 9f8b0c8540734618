#include "zel/mediainfo/StreamInfo.h"
