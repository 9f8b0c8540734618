#include "zel/sample/Sample.h"
