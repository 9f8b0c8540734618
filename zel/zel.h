// The whole public interface of Zel_AudioCompositor.
//
//   zel::Ref<IClassFactory> factory;
//   DllGetClassObject(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
//
// A host starts with that (zel/base/EntryPoints.h), makes a compositor, and works with
// zel/compositor/AudioCompositor.h and zel/compositor/MediaStream.h.
#pragma once

#include "zel/Common/Image/ImageConvert.h"
#include "zel/audio/AudioConverter.h"
#include "zel/audio/IntermixAudio.h"
#include "zel/base/ClassFactory.h"
#include "zel/base/Component.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/base/Unknown.h"
#include "zel/base/UnknownList.h"
#include "zel/compositor/AudioCompositor.h"
#include "zel/compositor/Diagnosis.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/mediainfo/MetaData.h"
#include "zel/mediainfo/ProgramInfo.h"
#include "zel/mediainfo/ProgramRecords.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/mediainfo/StreamRecords.h"
#include "zel/platform/COMSupport.h"
#include "zel/platform/DecoderManager.h"
#include "zel/platform/MediaInfoLibrary.h"
#include "zel/platform/Types.h"
#include "zel/platform/Zel_Log.h"
#include "zel/sample/FrameBuffer.h"
#include "zel/sample/MediaFrame.h"
#include "zel/sample/Sample.h"
