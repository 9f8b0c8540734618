// Names the public types that no exported function mentions, so that the gate sees them whole.
#include "zel/zel.h"

extern "C" ZEL_API void Interfaces(IClassFactory*, IAudioCompositor*, IMediaStream*,
                                   IMediaDecoderMgr*, IMediaDecoder*, CFrameBuffer*,
                                   DecoderSelection*, ICompositorDiagnosis*);
void Interfaces(IClassFactory*, IAudioCompositor*, IMediaStream*, IMediaDecoderMgr*, IMediaDecoder*,
                CFrameBuffer*, DecoderSelection*, ICompositorDiagnosis*) {}
