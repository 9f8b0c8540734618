// The records that describe elementary streams.
//
//   StreamInfo stream = {};
//   stream.type = AV_STREAM_AUDIO;
//   stream.id = 1 << 16 | 2;  // stream 2 of program 1
//   stream.audioInfo = {48000, 2, 16, {}};
//
// Records pass by address between separately built components, so their layout is part of the
// interface: the assertions below fix it for 32-bit x86. Strings are UTF-32 in fixed arrays and
// end with a zero. Threads: records are plain data and lock nothing.
#pragma once

#include <cstddef>
#include <cstdint>

/// Video format; carried whole and not interpreted here.
struct VideoInfo {
  unsigned char reserved[52];
};
static_assert(sizeof(VideoInfo) == 52);

/// Audio format.
struct AudioInfo {
  std::int32_t sampleRate;     ///< Samples per second and channel.
  std::int32_t channels;       ///< Channel count.
  std::int32_t bitsPerSample;  ///< Bits per sample.
  unsigned char reserved[16];  ///< Carried whole.
};
static_assert(sizeof(AudioInfo) == 28);
static_assert(offsetof(AudioInfo, channels) == 4 && offsetof(AudioInfo, bitsPerSample) == 8 &&
              offsetof(AudioInfo, reserved) == 12);

/// One elementary stream.
struct StreamInfo {
  std::int32_t type;  ///< AV_STREAM_TYPE: 2 video, 3 audio.
  std::uint32_t id;   ///< Bits 16 to 23: the program's id; bits 0 to 15: the stream's number.
  std::uint32_t streamIndex;  ///< Index of the stream in its file.
  std::uint32_t fourCC;       ///< Codec, as a four-character code.
  std::int32_t state;         ///< -1 when fresh.
  wchar_t name[64];
  wchar_t description[128];
  wchar_t languageDesc[64];
  double length;           ///< Seconds.
  std::uint32_t bitRate;   ///< Bits per second.
  VideoInfo videoInfo;     ///< As delivered.
  VideoInfo videoSrcInfo;  ///< As in the source.
  AudioInfo audioInfo;
  std::int64_t startPTS;          ///< First presentation time stamp, 100-ns units.
  std::int64_t ptsOffset;         ///< To be added to time stamps; also the stream's delay.
  std::int32_t reserved0;         ///< 2 when fresh.
  std::int32_t sourceScanType;    ///< 2 when fresh.
  std::uint32_t streamPID;        ///< Packet id.
  std::int64_t firstPacketPos;    ///< Byte position of the first packet.
  std::uint32_t extraDataLength;  ///< Bytes at `extraData`.
  unsigned char* extraData;       ///< Codec-private data, or null.
  std::int32_t selected;          ///< Not 0: the host selected the stream.
  std::int32_t losslessProcess;   ///< Not 0: to be passed on without re-encoding.
  std::int32_t channelIndex;      ///< Chosen when the stream is selected; -1 when fresh.
  std::int32_t losslessCapacity;  ///< Not 0: can be passed on without re-encoding.
  std::int32_t profileValue;      ///< Codec profile.
  std::int32_t levelValue;        ///< Codec level.
  std::int32_t maxBFrames;        ///< Most consecutive B-frames.
  unsigned char reserved1[12];
};

#if defined(__i386__)
static_assert(sizeof(StreamInfo) == 1272);
static_assert(offsetof(StreamInfo, type) == 0 && offsetof(StreamInfo, id) == 4);
static_assert(offsetof(StreamInfo, streamIndex) == 8 && offsetof(StreamInfo, fourCC) == 12);
static_assert(offsetof(StreamInfo, state) == 16 && offsetof(StreamInfo, name) == 20);
static_assert(offsetof(StreamInfo, description) == 276 &&
              offsetof(StreamInfo, languageDesc) == 788);
static_assert(offsetof(StreamInfo, length) == 1044 && offsetof(StreamInfo, bitRate) == 1052);
static_assert(offsetof(StreamInfo, videoInfo) == 1056 &&
              offsetof(StreamInfo, videoSrcInfo) == 1108);
static_assert(offsetof(StreamInfo, audioInfo) == 1160 && offsetof(StreamInfo, startPTS) == 1188);
static_assert(offsetof(StreamInfo, ptsOffset) == 1196 && offsetof(StreamInfo, reserved0) == 1204);
static_assert(offsetof(StreamInfo, sourceScanType) == 1208 &&
              offsetof(StreamInfo, streamPID) == 1212);
static_assert(offsetof(StreamInfo, firstPacketPos) == 1216);
static_assert(offsetof(StreamInfo, extraDataLength) == 1224 &&
              offsetof(StreamInfo, extraData) == 1228);
static_assert(offsetof(StreamInfo, selected) == 1232 &&
              offsetof(StreamInfo, losslessProcess) == 1236);
static_assert(offsetof(StreamInfo, channelIndex) == 1240);
static_assert(offsetof(StreamInfo, losslessCapacity) == 1244);
static_assert(offsetof(StreamInfo, profileValue) == 1248 &&
              offsetof(StreamInfo, levelValue) == 1252);
static_assert(offsetof(StreamInfo, maxBFrames) == 1256 && offsetof(StreamInfo, reserved1) == 1260);
#endif

/// One subpicture stream, 896 bytes.
struct SubPicStreamInfo {
  std::int32_t type;
  std::uint32_t id;
  std::uint32_t fourCC;
  wchar_t language[64];
  wchar_t description[157];
};
static_assert(sizeof(SubPicStreamInfo) == 896);
static_assert(offsetof(SubPicStreamInfo, id) == 4 && offsetof(SubPicStreamInfo, fourCC) == 8);
static_assert(offsetof(SubPicStreamInfo, language) == 12 &&
              offsetof(SubPicStreamInfo, description) == 268);

/// Kind of an extra-data block; any value is stored unchanged.
enum STREAM_EXTRA_DATA_TYPE : std::int32_t {};

/// One typed block of data that belongs to a stream.
struct SStreamExtraData {
  STREAM_EXTRA_DATA_TYPE type;
  std::uint32_t size;   ///< Bytes at `data`, never 0.
  unsigned char* data;  ///< Owned by the entry.
};
#if defined(__i386__)
static_assert(sizeof(SStreamExtraData) == 12);
static_assert(offsetof(SStreamExtraData, size) == 4 && offsetof(SStreamExtraData, data) == 8);
#endif
