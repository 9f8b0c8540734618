#include "zel/Common/Image/Bitmap.h"
