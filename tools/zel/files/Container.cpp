#include "tools/zel/files/Container.h"

#include <algorithm>
#include <cctype>

#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

// Matroska gets FLAC, which loses nothing and has no encoder delay for players to disagree on.
constexpr Container kContainers[] = {
    {".wav", "WAV", "wav", "pcm_s16le", true, 0},
    {".flac", "FLAC", "flac", "flac", true, 0},
    {".mp4", "MP4", "mp4", "aac", false, 80'000},
    {".m4v", "MP4", "mp4", "aac", false, 80'000},
    {".mov", "QuickTime", "mov", "aac", false, 80'000},
    {".m4a", "MP4 audio", "ipod", "aac", true, 80'000},
    {".mkv", "Matroska", "matroska", "flac", false, 0},
    {".mka", "Matroska audio", "matroska", "flac", true, 0},
    {".webm", "WebM", "webm", "libvorbis", false, 0},
    {".ogg", "Ogg", "ogg", "libvorbis", true, 0},
    {".oga", "Ogg", "ogg", "libvorbis", true, 0},
    {".opus", "Ogg", "opus", "libopus", true, 64'000},
    {".mp3", "MP3", "mp3", "libmp3lame", true, 96'000},
};

}  // namespace

const Container& ContainerOf(const std::string& path) {
  std::string name = path.substr(path.rfind('/') + 1);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  for (const Container& container : kContainers) {
    if (name.ends_with(container.suffix) && name != container.suffix) return container;
  }
  throw Failure(path, "the name tells no known container (" + KnownSuffixes() + ")");
}

std::string KnownSuffixes() {
  std::string all;
  for (const Container& container : kContainers) {
    all += (all.empty() ? "" : " ") + std::string(container.suffix);
  }
  return all;
}

}  // namespace zel::tool
