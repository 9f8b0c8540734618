#include "kernaldec/file/Programs.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include "media/MediaFile.h"

namespace zel::kernaldec {
namespace {

// The largest program id: 8 bits of a stream's id.
constexpr unsigned kMaxId = 255;
// 16 bits of a stream's id number the streams.
constexpr unsigned kMaxStreams = 0x10000;

unsigned StreamCount(const AVFormatContext* format) {
  return std::min(format->nb_streams, kMaxStreams);
}

/// True when programs can keep the container's ids.
bool OwnIdsServe(const AVFormatContext* format) {
  std::set<int> seen;
  for (unsigned i = 0; i < format->nb_programs; ++i) {
    const int id = format->programs[i]->id;
    if (id < 1 || id > static_cast<int>(kMaxId) || !seen.insert(id).second) return false;
  }
  // Streams outside every program need an id, too.
  return seen.size() < kMaxId;
}

std::string NameOf(const AVProgram& program) {
  for (const char* key : {"service_name", "title", "name"}) {
    const AVDictionaryEntry* entry = av_dict_get(program.metadata, key, nullptr, 0);
    if (entry != nullptr) return entry->value;
  }
  return {};
}

int IndexOfPid(const AVFormatContext* format, const Program& program, int pid) {
  for (const int index : program.streams) {
    if (format->streams[index]->id == pid) return index;
  }
  return -1;
}

Program Convert(const AVFormatContext* format, const AVProgram& source, std::uint32_t id) {
  Program program;
  program.id = id;
  program.number = source.program_num != 0 ? source.program_num : source.id;
  program.name = NameOf(source);
  for (unsigned i = 0; i < source.nb_stream_indexes; ++i) {
    const unsigned index = source.stream_index[i];
    if (index < StreamCount(format)) program.streams.push_back(static_cast<int>(index));
  }
  std::sort(program.streams.begin(), program.streams.end());
  program.referenceStream = IndexOfPid(format, program, source.pcr_pid);
  return program;
}

/// A program of the streams that are in none of `programs`.
Program Rest(const AVFormatContext* format, const std::vector<Program>& programs) {
  std::vector<bool> placed(StreamCount(format), false);
  std::set<std::uint32_t> ids;
  for (const Program& program : programs) {
    ids.insert(program.id);
    for (const int index : program.streams) placed[static_cast<std::size_t>(index)] = true;
  }
  Program rest;
  while (ids.count(rest.id) != 0) ++rest.id;
  rest.number = static_cast<int>(rest.id);
  for (std::size_t index = 0; index < placed.size(); ++index) {
    if (!placed[index]) rest.streams.push_back(static_cast<int>(index));
  }
  return rest;
}

Selection SelectFirst(const AVFormatContext* format, const std::vector<Program>& programs) {
  // Some broadcasts list programs without sound first.
  for (const AVMediaType type : {AVMEDIA_TYPE_AUDIO, AVMEDIA_TYPE_VIDEO}) {
    for (std::size_t i = 0; i < programs.size(); ++i) {
      if (programs[i].FindStream(format, type) < 0) continue;
      return {static_cast<int>(i), programs[i].FindStream(format, AVMEDIA_TYPE_AUDIO),
              programs[i].FindStream(format, AVMEDIA_TYPE_VIDEO)};
    }
  }
  return {};
}

std::optional<Selection> SelectById(const AVFormatContext* format,
                                    const std::vector<Program>& programs, std::uint32_t programId,
                                    std::uint32_t streamId) {
  for (std::size_t i = 0; i < programs.size(); ++i) {
    const Program& program = programs[i];
    if (program.id != programId) continue;
    for (const int index : program.streams) {
      if (program.StreamId(index) != streamId) continue;
      const AVMediaType type = format->streams[index]->codecpar->codec_type;
      if (type == AVMEDIA_TYPE_AUDIO) {
        return Selection{static_cast<int>(i), index,
                         program.FindStream(format, AVMEDIA_TYPE_VIDEO)};
      }
      if (type == AVMEDIA_TYPE_VIDEO) {
        return Selection{static_cast<int>(i), program.FindStream(format, AVMEDIA_TYPE_AUDIO),
                         index};
      }
    }
  }
  return std::nullopt;
}

}  // namespace

int Program::FindStream(const AVFormatContext* format, AVMediaType type, int which) const {
  for (const int index : streams) {
    const AVStream* stream = format->streams[index];
    if (stream->codecpar->codec_type != type) continue;
    if (type == AVMEDIA_TYPE_VIDEO && media::IsCover(*stream)) continue;
    if (which-- == 0) return index;
  }
  return -1;
}

std::vector<Program> ListPrograms(const AVFormatContext* format) {
  const bool ownIds = OwnIdsServe(format);
  std::vector<Program> programs;
  for (unsigned i = 0; i < std::min(format->nb_programs, kMaxId - 1); ++i) {
    const AVProgram& source = *format->programs[i];
    const std::uint32_t id = ownIds ? static_cast<std::uint32_t>(source.id) : i + 1;
    programs.push_back(Convert(format, source, id));
  }
  Program rest = Rest(format, programs);
  if (programs.empty() || !rest.streams.empty()) programs.push_back(std::move(rest));
  return programs;
}

std::optional<Selection> Select(const AVFormatContext* format, const std::vector<Program>& programs,
                                const DecoderSelection* wanted) {
  if (wanted == nullptr || wanted->size == 0) return SelectFirst(format, programs);
  if (wanted->size < offsetof(DecoderSelection, reserved1)) return std::nullopt;
  return SelectById(format, programs, wanted->programId, wanted->streamId);
}

}  // namespace zel::kernaldec
