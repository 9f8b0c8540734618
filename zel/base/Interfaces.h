// Names of the interfaces that have an id. Declared here first, with their visibility: what is
// instantiated over an interface (uuidof_class) is as visible as the interface.
#pragma once

#include "zel/platform/Types.h"

class ZEL_API IAudioCompositor;
class ZEL_API IMediaInfo;
class ZEL_API IMediaSetting;
class ZEL_API IMediaSettingInternal;
class ZEL_API IMediaStream;
class ZEL_API IProgramInfo;
class ZEL_API IProgramInfos;
class ZEL_API IStreamInfo;
class ZEL_API IStreamInfos;
class ZEL_API ISubPicStreamInfo;
class ZEL_API ISubPicStreamInfos;
class ZEL_API IZelSample;
