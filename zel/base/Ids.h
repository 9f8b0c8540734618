// The ids of every interface and class that the library implements or asks the platform for.
//
//   stream->QueryInterface(IID_IMediaStream, face.ReceiveVoid());
//   stream->QueryInterface(uuidof_class<IMediaStream>::get_guid(), face.ReceiveVoid());  // alike
//
// Threads: any thread.
#pragma once

#include "zel/base/Interfaces.h"
#include "zel/platform/Types.h"

extern "C" {

ZEL_API extern const _GUID IID_IZelSample;             // 141440F3-0452-423F-8AEF-AFDC90C0A207
ZEL_API extern const _GUID IID_IAudioCompositor;       // 4A241910-B213-4456-94E2-EBD09EDED4A2
ZEL_API extern const _GUID IID_IMediaStream;           // E6C172B0-6D74-438F-81E0-433D92B2A627
ZEL_API extern const _GUID IID_IStreamInfo;            // 58FE100C-DCD4-49DB-9930-326174CC0ECC
ZEL_API extern const _GUID IID_ISubPicStreamInfo;      // FB73C029-B0BD-4CBB-A0CE-971E64D4BDD4
ZEL_API extern const _GUID IID_IProgramInfo;           // F5FA588B-55AF-4FA9-8913-323CFF39C231
ZEL_API extern const _GUID IID_IStreamInfos;           // 5DD650C8-40A3-4D0D-B460-0BA5804A1AAD
ZEL_API extern const _GUID IID_IProgramInfos;          // E04C85FD-D887-4716-8D7A-D18A17CE60EC
ZEL_API extern const _GUID IID_ISubPicStreamInfos;     // 4291F08A-95C4-45C3-AF5B-1CC55A3F2CF7
ZEL_API extern const _GUID IID_IMediaInfo;             // 10CA4A98-A525-42A5-9282-DD64406261B2
ZEL_API extern const _GUID IID_IMediaSetting;          // C69C2F2A-1C48-47E4-B3E6-0A23164EF49A
ZEL_API extern const _GUID IID_IMediaSettingInternal;  // 4C4A0793-5531-4700-A16A-FEC2D15DF63B

/// The one class that `DllGetClassObject` offers.
ZEL_API extern const _GUID CLSID_CAudioCompositor;  // 6C9D22A7-A4A2-48CC-84FE-273D41265118
/// The platform's decoder manager.
ZEL_API extern const _GUID CLSID_CMediaDecoderMgr;  // 8EDEE5C0-2AA2-4FCD-9848-B366681BC25A
ZEL_API extern const _GUID IID_IMediaDecoderMgr;    // BC94D923-DF6C-4502-B142-58E733C768E0

}  // extern "C"

/// The id of interface `I`, one of the twelve above.
template <class I>
struct ZEL_API uuidof_class {
  /// The first call parses the id's text through the platform. Threads: any number at once.
  static _GUID get_guid();
};
