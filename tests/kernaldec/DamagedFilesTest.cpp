// Files that lie, read in every way: what is not refused keeps the interfaces' promises.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include "fuzz/ReadMedia.h"
#include "tests/support/Media.h"

namespace zel::test {
namespace {

using Random = std::mt19937;

std::size_t Below(Random& random, std::size_t limit) {
  return random() % std::max<std::size_t>(limit, 1);
}

/// A place in a file; most of what can lie stands near its ends.
std::size_t Place(Random& random, std::size_t size) {
  constexpr std::size_t header = 600;
  switch (random() % 4) {
    case 0:
      return Below(random, size);
    case 1:
      return size - 1 - Below(random, std::min(size, header));
    default:
      return Below(random, std::min(size, header));
  }
}

void Truncate(Random& random, std::string& bytes) {
  bytes.resize(Place(random, bytes.size()));
}
void FlipBits(Random& random, std::string& bytes) {
  for (std::size_t i = 0; i <= random() % 20; ++i) {
    bytes[Place(random, bytes.size())] ^= static_cast<char>(1U << random() % 8);
  }
}
/// Overwrites a number of 1 to 8 bytes, as a length or a count would be.
void Lie(Random& random, std::string& bytes) {
  const std::size_t size = std::size_t{1} << random() % 4;
  const std::size_t at = std::min(Place(random, bytes.size()), bytes.size() - size);
  static constexpr char kLies[][2] = {{'\0', '\0'},     {'\xFF', '\xFF'}, {'\x7F', '\xFF'},
                                      {'\x80', '\x00'}, {'\x00', '\x01'}, {'\x01', '\x00'}};
  const char* lie = kLies[random() % std::size(kLies)];
  for (std::size_t i = 0; i < size; ++i) bytes[at + i] = lie[i != 0 ? 1 : 0];
}
void MoveBlock(Random& random, std::string& bytes) {
  const std::size_t from = Place(random, bytes.size());
  const std::string block = bytes.substr(from, 1 + random() % 64);
  if (random() % 2 != 0) bytes.erase(from, block.size());
  bytes.insert(Below(random, bytes.size()), block);
}

TEST(DamagedFiles, KeepTheInterfacesPromises) {
  const Folder folder;
  Ffmpeg(folder,
         "-f lavfi -i testsrc=s=32x18:r=25:d=0.6 -f lavfi -i sine=r=16000:d=0.6 -c:v libx264 -c:a "
         "aac a.mp4 -c:v mpeg4 -c:a flac a.mkv -c:v mpeg2video -c:a mp2 -map 0 -map 1 -map 1 "
         "-program program_num=3:st=0:st=1 -program program_num=7:title=Two:st=2 a.ts -map 1 a.wav "
         "-map 1 a.flac -map 1 -c:a libvorbis a.ogg -c:v mjpeg -c:a pcm_s16le a.avi -map 1 -c:a "
         "libmp3lame a.mp3");
  const Ref<IMediaDecoderMgr> manager = Manager();
  const std::string path = folder / "damaged";
  Random random(20);
  int read = 0;
  for (const char* name :
       {"a.mp4", "a.mkv", "a.ts", "a.avi", "a.wav", "a.flac", "a.ogg", "a.mp3"}) {
    SCOPED_TRACE(name);
    const std::string whole = ReadFile(folder / name);
    const fuzz::Reading sound = fuzz::ReadMedia(manager.get(), folder / name, 50);
    ASSERT_GT(sound.streams * sound.sounds, 0);
    ASSERT_EQ(sound.pictures > 0, sound.streams > 1);
    for (int i = 0; i < 40; ++i) {
      std::string bytes = whole;
      constexpr void (*damages[])(Random&, std::string&) = {Truncate, FlipBits, Lie, Lie,
                                                            MoveBlock};
      for (std::size_t n = 0; n <= random() % 3 && bytes.size() > 8; ++n) {
        damages[random() % std::size(damages)](random, bytes);
      }
      WriteFile(path, bytes);
      read += fuzz::ReadMedia(manager.get(), path, random()).sounds > 0 ? 1 : 0;
    }
  }
  EXPECT_GT(read, 100) << "damage that leaves nothing to read tests nothing";
}

// Numbers in headers that would overflow sums and products of times, rates and counts.
TEST(DamagedFiles, MayClaimAnyNumber) {
  const Folder folder;
  Ffmpeg(folder, "-f lavfi -i sine=r=8000:d=0.5 a.wav");
  const Ref<IMediaDecoderMgr> manager = Manager();
  const std::string wave = ReadFile(folder / "a.wav");
  constexpr std::size_t channels = 22;  // Offsets in the format chunk, which comes first.
  constexpr std::size_t rate = 24;
  constexpr std::size_t align = 32;
  for (const std::size_t field : {channels, rate, align, align + 2}) {
    for (const std::uint32_t value : {0U, 1U, 0x7FFFU, 0xFFFFU, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      std::string bytes = wave;
      for (std::size_t i = 0; i < (field == rate ? 4U : 2U); ++i) {
        bytes[field + i] = static_cast<char>(value >> (8 * i));
      }
      WriteFile(folder / "lie.wav", bytes);
      fuzz::ReadMedia(manager.get(), folder / "lie.wav", 7);
    }
  }
}

}  // namespace
}  // namespace zel::test
