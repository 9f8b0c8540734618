// Declarations of the interfaces that have an id; the rooms' headers include them for you. They
// come with their visibility here, because a template that is instantiated over an interface, such
// as uuidof_class, is as visible as the interface was declared.
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
