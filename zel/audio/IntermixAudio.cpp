#include "zel/audio/IntermixAudio.h"
