// The records that describe programs and whole media files.
//
//   ProgramInfo program = {};
//   program.audioStreams = streams;  // StreamInfo streams[2]
//   program.audioStreamCount = 2;
//   MEDIA_FILE_INFO file = {};
//   file.programs = &program;
//   file.programCount = 1;
//   mediaInfo->Fill(&file);
//
// Records pass by address between separately built components, so their layout is part of the
// interface: the assertions below fix it for 32-bit x86. Strings are UTF-32 in fixed arrays and
// end with a zero. Lengths are in the producer's unit (seconds from the decoder manager). Threads:
// records are plain data and lock nothing.
#pragma once

#include "zel/mediainfo/StreamRecords.h"

/// One program of a media file. A count of 0 or less, or a null array, means no streams of a kind.
struct ProgramInfo {
  std::int32_t number;
  std::uint32_t id;  ///< What bits 16 to 23 of the ids of its streams carry.
  double mediaLength;
  std::uint32_t bitrate;          ///< Bits per second.
  std::int32_t videoStreamCount;  ///< Records at `videoStreams`.
  std::int32_t audioStreamCount;  ///< Records at `audioStreams`.
  StreamInfo* videoStreams;
  StreamInfo* audioStreams;
  std::uint32_t timeStampReferenceStreamID;  ///< The stream whose time stamps are the program's.
  std::int32_t subPicStreamCount;            ///< Records at `subPicStreams`.
  StreamInfo* subPicStreams;                 ///< Subpicture streams, as full stream records.
};

/// One media file.
struct MEDIA_FILE_INFO {
  std::uint32_t fourCC;
  wchar_t fileName[512];
  wchar_t description[128];
  double mediaLength;
  std::uint32_t bitrate;      ///< Bits per second, overall.
  std::int32_t programCount;  ///< Records at `programs`.
  ProgramInfo* programs;
  std::int32_t frameRateConstant;  ///< Not 0: the frame rate is constant.
};

/// A trim segment; carried whole, its values are the host's.
struct STrimSegment {
  std::int64_t values[4];
};
static_assert(sizeof(STrimSegment) == 32);

#if defined(__i386__)
static_assert(sizeof(ProgramInfo) == 48);
static_assert(offsetof(ProgramInfo, number) == 0 && offsetof(ProgramInfo, id) == 4);
static_assert(offsetof(ProgramInfo, mediaLength) == 8 && offsetof(ProgramInfo, bitrate) == 16);
static_assert(offsetof(ProgramInfo, videoStreamCount) == 20);
static_assert(offsetof(ProgramInfo, audioStreamCount) == 24);
static_assert(offsetof(ProgramInfo, videoStreams) == 28);
static_assert(offsetof(ProgramInfo, audioStreams) == 32);
static_assert(offsetof(ProgramInfo, timeStampReferenceStreamID) == 36);
static_assert(offsetof(ProgramInfo, subPicStreamCount) == 40);
static_assert(offsetof(ProgramInfo, subPicStreams) == 44);

static_assert(sizeof(MEDIA_FILE_INFO) == 2588);
static_assert(offsetof(MEDIA_FILE_INFO, fourCC) == 0 && offsetof(MEDIA_FILE_INFO, fileName) == 4);
static_assert(offsetof(MEDIA_FILE_INFO, description) == 2052);
static_assert(offsetof(MEDIA_FILE_INFO, mediaLength) == 2564);
static_assert(offsetof(MEDIA_FILE_INFO, bitrate) == 2572);
static_assert(offsetof(MEDIA_FILE_INFO, programCount) == 2576);
static_assert(offsetof(MEDIA_FILE_INFO, programs) == 2580);
static_assert(offsetof(MEDIA_FILE_INFO, frameRateConstant) == 2584);
#endif
