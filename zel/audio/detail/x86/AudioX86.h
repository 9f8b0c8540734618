// The vector kernels of x86 processors, one file per level; each puts its own over the level's
// below.
//
// Such a file is compiled with its level's instructions, so it must not hold a function that the
// linker could merge with another file's copy: everything in it but its one entry has internal
// linkage, and it includes no standard C++ headers with functions in them.
#pragma once

#include "zel/audio/detail/AudioKernels.h"

namespace zel::audio {

void SetSse2Kernels(Kernels* kernels);
void SetSsse3Kernels(Kernels* kernels);
void SetAvx2Kernels(Kernels* kernels);
void SetAvx512Kernels(Kernels* kernels);

}  // namespace zel::audio
