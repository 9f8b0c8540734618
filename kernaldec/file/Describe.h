// Describes streams and files with the records of the media information model.
#pragma once

#include <cstdint>

#include "kernaldec/file/Programs.h"
#include "media/Ffmpeg.h"
#include "media/MediaFile.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/mediainfo/StreamRecords.h"

namespace zel::kernaldec {

/// A four-character code, first character in the lowest byte. It is the container's tag if that
/// consists of printable characters. Otherwise it is the beginning of FFmpeg's name for the codec,
/// in capitals and padded with spaces ("AAC ", "MP3 "), without the prefix of PCM ("S16L").
std::uint32_t FourCC(const AVCodecParameters& codec);

/// Describes stream `index` as a member of `program`. Texts longer than their fields are cut.
/// @return a record whose `extraData` belongs to `format`
StreamInfo DescribeStream(const AVFormatContext* format, const Program& program, int index);

/// Describes a whole file: its programs with their video, audio and subpicture streams. The file's
/// four-character code comes from FFmpeg's name for the container. Lengths are in seconds; a
/// program's runs from the start of its first stream to the end of its last.
/// @return S_OK, or CMediaInfo's reason to reject the record; `info` is of no use then
/// @throws std::bad_alloc
HRESULT FillMediaInfo(const media::MediaFile& file, CMediaInfo* info);

}  // namespace zel::kernaldec
