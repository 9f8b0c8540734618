// The components that the command loads at run time.
#pragma once

#include "zel/base/Ref.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/platform/DecoderManager.h"

namespace zel::tool {

/// Loads the library and the decoder module, which are found in the command's own folder. What
/// cannot be loaded is left to the operations below, which say why.
void LoadModules();

/// Makes a compositor from the library in the command's own folder.
/// @throws Failure
Ref<IAudioCompositor> MakeCompositor();

/// Makes the platform's decoder manager.
/// @throws Failure
Ref<IMediaDecoderMgr> MakeDecoderManager();

}  // namespace zel::tool
