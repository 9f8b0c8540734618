#include "zel/base/Ids.h"

#include "zel/platform/COMSupport.h"

extern "C" {

const _GUID IID_IZelSample = {
    0x141440F3, 0x0452, 0x423F, {0x8A, 0xEF, 0xAF, 0xDC, 0x90, 0xC0, 0xA2, 0x07}};
const _GUID IID_IAudioCompositor = {
    0x4A241910, 0xB213, 0x4456, {0x94, 0xE2, 0xEB, 0xD0, 0x9E, 0xDE, 0xD4, 0xA2}};
const _GUID IID_IMediaStream = {
    0xE6C172B0, 0x6D74, 0x438F, {0x81, 0xE0, 0x43, 0x3D, 0x92, 0xB2, 0xA6, 0x27}};
const _GUID IID_IStreamInfo = {
    0x58FE100C, 0xDCD4, 0x49DB, {0x99, 0x30, 0x32, 0x61, 0x74, 0xCC, 0x0E, 0xCC}};
const _GUID IID_ISubPicStreamInfo = {
    0xFB73C029, 0xB0BD, 0x4CBB, {0xA0, 0xCE, 0x97, 0x1E, 0x64, 0xD4, 0xBD, 0xD4}};
const _GUID IID_IProgramInfo = {
    0xF5FA588B, 0x55AF, 0x4FA9, {0x89, 0x13, 0x32, 0x3C, 0xFF, 0x39, 0xC2, 0x31}};
const _GUID IID_IStreamInfos = {
    0x5DD650C8, 0x40A3, 0x4D0D, {0xB4, 0x60, 0x0B, 0xA5, 0x80, 0x4A, 0x1A, 0xAD}};
const _GUID IID_IProgramInfos = {
    0xE04C85FD, 0xD887, 0x4716, {0x8D, 0x7A, 0xD1, 0x8A, 0x17, 0xCE, 0x60, 0xEC}};
const _GUID IID_ISubPicStreamInfos = {
    0x4291F08A, 0x95C4, 0x45C3, {0xAF, 0x5B, 0x1C, 0xC5, 0x5A, 0x3F, 0x2C, 0xF7}};
const _GUID IID_IMediaInfo = {
    0x10CA4A98, 0xA525, 0x42A5, {0x92, 0x82, 0xDD, 0x64, 0x40, 0x62, 0x61, 0xB2}};
const _GUID IID_IMediaSetting = {
    0xC69C2F2A, 0x1C48, 0x47E4, {0xB3, 0xE6, 0x0A, 0x23, 0x16, 0x4E, 0xF4, 0x9A}};
const _GUID IID_IMediaSettingInternal = {
    0x4C4A0793, 0x5531, 0x4700, {0xA1, 0x6A, 0xFE, 0xC2, 0xD1, 0x5D, 0xF6, 0x3B}};
const _GUID CLSID_CAudioCompositor = {
    0x6C9D22A7, 0xA4A2, 0x48CC, {0x84, 0xFE, 0x27, 0x3D, 0x41, 0x26, 0x51, 0x18}};
const _GUID CLSID_CMediaDecoderMgr = {
    0x8EDEE5C0, 0x2AA2, 0x4FCD, {0x98, 0x48, 0xB3, 0x66, 0x68, 0x1B, 0xC2, 0x5A}};
const _GUID IID_IMediaDecoderMgr = {
    0xBC94D923, 0xDF6C, 0x4502, {0xB1, 0x42, 0x58, 0xE7, 0x33, 0xC7, 0x68, 0xE0}};

}  // extern "C"

// Ids are parsed by the platform, which a host may replace, and not copied from the constants.
#define ZEL_DEFINE_UUIDOF(Interface, text)    \
  template <>                                 \
  _GUID uuidof_class<Interface>::get_guid() { \
    static const _GUID id = [] {              \
      _GUID parsed{};                         \
      CLSIDFromString(L##text, &parsed);      \
      return parsed;                          \
    }();                                      \
    return id;                                \
  }                                           \
  template struct uuidof_class<Interface>

ZEL_DEFINE_UUIDOF(IZelSample, "141440F3-0452-423f-8AEF-AFDC90C0A207");
ZEL_DEFINE_UUIDOF(IAudioCompositor, "4A241910-B213-4456-94E2-EBD09EDED4A2");
ZEL_DEFINE_UUIDOF(IMediaStream, "E6C172B0-6D74-438f-81E0-433D92B2A627");
ZEL_DEFINE_UUIDOF(IStreamInfo, "58FE100C-DCD4-49db-9930-326174CC0ECC");
ZEL_DEFINE_UUIDOF(ISubPicStreamInfo, "FB73C029-B0BD-4cbb-A0CE-971E64D4BDD4");
ZEL_DEFINE_UUIDOF(IProgramInfo, "F5FA588B-55AF-4fa9-8913-323CFF39C231");
ZEL_DEFINE_UUIDOF(IStreamInfos, "5DD650C8-40A3-4d0d-B460-0BA5804A1AAD");
ZEL_DEFINE_UUIDOF(IProgramInfos, "E04C85FD-D887-4716-8D7A-D18A17CE60EC");
ZEL_DEFINE_UUIDOF(ISubPicStreamInfos, "4291F08A-95C4-45c3-AF5B-1CC55A3F2CF7");
ZEL_DEFINE_UUIDOF(IMediaInfo, "10CA4A98-A525-42a5-9282-DD64406261B2");
ZEL_DEFINE_UUIDOF(IMediaSetting, "C69C2F2A-1C48-47e4-B3E6-0A23164EF49A");
ZEL_DEFINE_UUIDOF(IMediaSettingInternal, "4C4A0793-5531-4700-A16A-FEC2D15DF63B");
