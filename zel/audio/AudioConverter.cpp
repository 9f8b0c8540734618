#include "zel/audio/AudioConverter.h"
