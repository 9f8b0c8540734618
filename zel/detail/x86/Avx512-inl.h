// The level avx512: 64 bytes at a time.
#pragma once

#define ZEL_LEVEL avx512
#include "zel/detail/x86/Registers512-inl.h"
