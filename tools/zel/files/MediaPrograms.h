// Descriptions of media files: their programs and streams.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zel/base/Ref.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/DecoderManager.h"

namespace zel::tool {

/// Tells a good file from short memory.
/// @param result of the decoder manager or a decoder. @throws Failure when memory was short
void CheckMemory(const std::string& path, HRESULT result);

/// Describes a file.
/// @throws Failure, which says why the file cannot be described
Ref<IMediaInfo> OpenMedia(IMediaDecoderMgr* manager, const std::string& path);

/// The programs of a description; there may be none.
std::vector<Ref<IProgramInfo>> ProgramsOf(IMediaInfo* media);

enum class StreamKind { kVideo, kAudio, kSubPicture };
inline constexpr StreamKind kStreamKinds[] = {StreamKind::kVideo, StreamKind::kAudio,
                                              StreamKind::kSubPicture};

/// A program's streams of one kind.
std::vector<Ref<IStreamInfo>> StreamsOf(IProgramInfo* program, StreamKind kind);

/// An id as it is shown and typed. "0x10002" is stream 2 of program 1: the program's id is in bits
/// 16 to 23, the stream's index below.
std::string IdText(std::uint32_t id);

/// Turns a string that a component handed out into UTF-8, and frees it. "unknown" for null.
std::string TakeText(wchar_t* text);

}  // namespace zel::tool
