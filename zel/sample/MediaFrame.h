// The record of one frame of audio or video, as it flows through a chain of streams.
//
//   MEDIA_FRAME frame = {};
//   frame.nStreamType = AV_STREAM_AUDIO;
//   frame.nFrameType = FRAME_DATA_DECODED;
//   frame.audio = {48000, 2, 16, bytes, 4096, 4096};
//   frame.llPTS = frame.llDTS = 0;
//
// Records pass by address between separately built components, so their layout is part of the
// interface: the assertions below fix it for 32-bit x86. All times are in 100-ns units, -1 for
// unknown. Threads: a record is plain data and locks nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/Bitmap.h"

/// Kind of a stream.
enum AV_STREAM_TYPE : std::int32_t {
  AV_STREAM_NONE = 0,  ///< A record of this type holds nothing.
  AV_STREAM_VIDEO = 2,
  AV_STREAM_AUDIO = 3,
};

/// What a frame's bytes are.
enum FRAME_DATA_TYPE : std::int32_t {
  FRAME_DATA_ENCODED = 0,  ///< Encoded data in a plain buffer.
  FRAME_DATA_DECODED = 1,  ///< Planar YUV video or PCM audio.
};

/// Layout of a video frame.
enum IMAGE_FORMAT : std::int32_t {
  IMAGE_FORMAT_RGB = 0,     ///< Bitmap header and pixel data.
  IMAGE_FORMAT_YUV = 1,     ///< Planes.
  IMAGE_FORMAT_BUFFER = 2,  ///< Plain bytes.
};

/// Layout of the planes of a YUV frame.
enum YUV_IMAGE_FORMAT : std::int32_t {
  YUV_IMAGE_420P = 2,  ///< Y, then U and V of ((w + 1) / 2) x ((h + 1) / 2) samples each.
};

/// What a sample is used for. Values other than 0 are the producer's own; they are stored and
/// returned.
enum SAMPLE_TYPE : std::int32_t {
  SAMPLE_TYPE_NONE = 0,  ///< Handed back to its pool.
};

/// The part of a frame record that describes audio: interleaved PCM.
struct MEDIA_FRAME_AUDIO {
  std::int32_t nSampleRate;     ///< Samples per second and channel.
  std::int32_t nChannels;       ///< Interleaved channels.
  std::int32_t nBitsPerSample;  ///< 16 for the PCM of this library.
  unsigned char* pData;         ///< Interleaved samples; aligned to 2 bytes at the least.
  std::int32_t nDataSize;       ///< Valid bytes at `pData`.
  std::int32_t nBufferSize;     ///< Bytes allocated at `pData`.
};

/// Planes of a YUV picture.
struct MEDIA_FRAME_YUV {
  std::int32_t nYuvFormat;   ///< YUV_IMAGE_FORMAT.
  unsigned char* pPlane[4];  ///< Y, U, V, alpha; null when absent.
  std::int32_t nWidth;       ///< Luma pixels per row.
  std::int32_t nHeight;      ///< Luma rows.
  std::int32_t nStride[4];   ///< Bytes per row of each plane.
};

/// Bytes, as of encoded video.
struct MEDIA_FRAME_BUFFER {
  unsigned char* pData;
  std::int32_t nDataSize;    ///< Valid bytes at `pData`.
  std::int32_t nBufferSize;  ///< Bytes allocated at `pData`.
};

/// A bitmap.
struct MEDIA_FRAME_RGB {
  tagBITMAPINFOHEADER bmiHeader;  ///< Its `biSizeImage` is the size of the pixel data.
  unsigned char* pBits;           ///< Pixels.
};

/// The part of a frame record that describes video.
struct MEDIA_FRAME_VIDEO {
  std::int32_t nImageFormat;  ///< IMAGE_FORMAT: which arm of the union holds.
  union {
    MEDIA_FRAME_YUV yuv;
    MEDIA_FRAME_BUFFER buffer;
    MEDIA_FRAME_RGB rgb;
  };
};

/// One frame of audio or video; `nStreamType` tells which arm of the union holds.
struct MEDIA_FRAME {
  std::int32_t nStreamType;  ///< AV_STREAM_TYPE.
  std::int32_t nFrameType;   ///< FRAME_DATA_TYPE.
  union {
    MEDIA_FRAME_AUDIO audio;
    MEDIA_FRAME_VIDEO video;
  };
  std::int32_t bKeyFrame;      ///< Not 0: a key frame (video).
  unsigned char reserved[24];  ///< Belongs to other components; copies of whole records keep it.
  std::int64_t llPTS;          ///< Presentation time.
  std::int64_t llDTS;          ///< Decoding time.
  std::int32_t nDuration;      ///< Duration.
};

#if defined(__i386__)
static_assert(sizeof(MEDIA_FRAME) == 104);
static_assert(offsetof(MEDIA_FRAME, nStreamType) == 0 && offsetof(MEDIA_FRAME, nFrameType) == 4);
static_assert(offsetof(MEDIA_FRAME, audio.nSampleRate) == 8);
static_assert(offsetof(MEDIA_FRAME, audio.nChannels) == 12);
static_assert(offsetof(MEDIA_FRAME, audio.nBitsPerSample) == 16);
static_assert(offsetof(MEDIA_FRAME, audio.pData) == 20);
static_assert(offsetof(MEDIA_FRAME, audio.nDataSize) == 24);
static_assert(offsetof(MEDIA_FRAME, audio.nBufferSize) == 28);
static_assert(offsetof(MEDIA_FRAME, video.nImageFormat) == 8);
static_assert(offsetof(MEDIA_FRAME, video.yuv.nYuvFormat) == 12);
static_assert(offsetof(MEDIA_FRAME, video.yuv.pPlane) == 16);
static_assert(offsetof(MEDIA_FRAME, video.yuv.nWidth) == 32);
static_assert(offsetof(MEDIA_FRAME, video.yuv.nHeight) == 36);
static_assert(offsetof(MEDIA_FRAME, video.yuv.nStride) == 40);
static_assert(offsetof(MEDIA_FRAME, video.buffer.pData) == 12);
static_assert(offsetof(MEDIA_FRAME, video.buffer.nDataSize) == 16);
static_assert(offsetof(MEDIA_FRAME, video.buffer.nBufferSize) == 20);
static_assert(offsetof(MEDIA_FRAME, video.rgb.bmiHeader) == 12);
static_assert(offsetof(MEDIA_FRAME, video.rgb.pBits) == 52);
static_assert(offsetof(MEDIA_FRAME, bKeyFrame) == 56 && offsetof(MEDIA_FRAME, reserved) == 60);
static_assert(offsetof(MEDIA_FRAME, llPTS) == 84 && offsetof(MEDIA_FRAME, llDTS) == 92);
static_assert(offsetof(MEDIA_FRAME, nDuration) == 100);
#endif
