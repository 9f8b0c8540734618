#include "kernaldec/file/Programs.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "media/MediaFile.h"

namespace zel::kernaldec {
namespace {

constexpr unsigned kMaxId = 255;

bool OwnIdsServe(const AVFormatContext* format) {
  std::set<int> seen;
  for (unsigned i = 0; i < format->nb_programs; ++i) {
    const int id = format->programs[i]->id;
    if (id < 1 || id > static_cast<int>(kMaxId) || !seen.insert(id).second) return false;
  }
  // The streams outside every program need an id, too.
  return seen.size() < kMaxId;
}

int IndexOfPid(const AVFormatContext* format, const Program& program, int pid) {
  for (const int index : program.streams) {
    if (format->streams[index]->id == pid) return index;
  }
  return -1;
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
  // Bits 0 to 15 number the streams.
  const unsigned count = std::min(format->nb_streams, 0x10000U);
  std::vector<bool> placed(count, false);
  std::vector<Program> programs;
  const bool ownIds = OwnIdsServe(format);
  for (unsigned i = 0; i < std::min(format->nb_programs, kMaxId - 1); ++i) {
    const AVProgram* source = format->programs[i];
    Program program;
    program.id = ownIds ? static_cast<std::uint32_t>(source->id) : i + 1;
    program.number = source->program_num != 0 ? source->program_num : source->id;
    for (const char* key : {"service_name", "title", "name"}) {
      const AVDictionaryEntry* entry = av_dict_get(source->metadata, key, nullptr, 0);
      if (entry == nullptr) continue;
      program.name = entry->value;
      break;
    }
    for (unsigned k = 0; k < source->nb_stream_indexes; ++k) {
      const unsigned index = source->stream_index[k];
      if (index >= count) continue;
      program.streams.push_back(static_cast<int>(index));
      placed[index] = true;
    }
    std::sort(program.streams.begin(), program.streams.end());
    program.referenceStream = IndexOfPid(format, program, source->pcr_pid);
    programs.push_back(std::move(program));
  }

  Program rest;
  for (unsigned index = 0; index < count; ++index) {
    if (!placed[index]) rest.streams.push_back(static_cast<int>(index));
  }
  if (!programs.empty()) {
    if (rest.streams.empty()) return programs;
    while (std::any_of(programs.begin(), programs.end(),
                       [&](const Program& program) { return program.id == rest.id; })) {
      ++rest.id;
    }
    rest.number = static_cast<int>(rest.id);
  }
  programs.push_back(std::move(rest));
  return programs;
}

bool Select(const AVFormatContext* format, const std::vector<Program>& programs,
            const DecoderSelection* wanted, Selection* selection) {
  *selection = {};
  if (wanted == nullptr || wanted->size == 0) {
    // Programs without sound come first in some broadcasts.
    for (const AVMediaType type : {AVMEDIA_TYPE_AUDIO, AVMEDIA_TYPE_VIDEO}) {
      for (std::size_t i = 0; i < programs.size(); ++i) {
        if (programs[i].FindStream(format, type) < 0) continue;
        selection->program = static_cast<int>(i);
        selection->audio = programs[i].FindStream(format, AVMEDIA_TYPE_AUDIO);
        selection->video = programs[i].FindStream(format, AVMEDIA_TYPE_VIDEO);
        return true;
      }
    }
    return true;
  }
  if (wanted->size < offsetof(DecoderSelection, reserved1)) return false;
  for (std::size_t i = 0; i < programs.size(); ++i) {
    const Program& program = programs[i];
    if (program.id != wanted->programId) continue;
    for (const int index : program.streams) {
      if (program.StreamId(index) != wanted->streamId) continue;
      const AVMediaType type = format->streams[index]->codecpar->codec_type;
      if (type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_VIDEO) return false;
      selection->program = static_cast<int>(i);
      selection->audio =
          type == AVMEDIA_TYPE_AUDIO ? index : program.FindStream(format, AVMEDIA_TYPE_AUDIO);
      selection->video =
          type == AVMEDIA_TYPE_VIDEO ? index : program.FindStream(format, AVMEDIA_TYPE_VIDEO);
      return true;
    }
  }
  return false;
}

}  // namespace zel::kernaldec
