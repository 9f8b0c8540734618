// Files that lie, read in every way: what is not refused keeps the interfaces' promises.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "fuzz/ReadMedia.h"
#include "tests/support/Media.h"

namespace zel::test {
namespace {

/// Cuts the file off, or writes a lie of 1 to 8 bytes; most of what can lie stands at the
/// beginning.
void Damage(std::mt19937& random, std::string& bytes) {
  const std::size_t places[] = {50, 600, 600, bytes.size()};
  const std::size_t at = random() % std::min(bytes.size(), places[random() % 4]);
  const std::size_t size = std::min(std::size_t{1} << random() % 4, bytes.size() - at);
  if (random() % 4 == 0) return bytes.resize(at + 1);
  bytes.replace(at, size, size, "\x00\xFF\x01\x7F\x5A"[random() % 5]);
}

TEST(DamagedFiles, KeepTheInterfacesPromises) {
  const Folder folder;
  Ffmpeg(folder,
         "-f lavfi -i testsrc=s=32x18:r=25:d=0.6 -f lavfi -i sine=r=16000:d=0.6 -c:v libx264 -c:a "
         "aac a.mp4 -c:v mpeg4 -c:a flac a.mkv -c:v mpeg2video -c:a mp2 -map 0 -map 1 -map 1 "
         "-program program_num=3:st=0:st=1 -program program_num=7:title=Two:st=2 a.ts -map 1 a.wav "
         "-map 1 a.flac -map 1 -c:a libvorbis a.ogg -c:v mjpeg -c:a pcm_s16le a.avi -map 1 -c:a "
         "libmp3lame a.mp3");
  const std::string damaged = folder / "damaged";
  std::mt19937 random(20);
  int read = 0;
  for (const char* name :
       {"a.mp4", "a.mkv", "a.ts", "a.avi", "a.wav", "a.flac", "a.ogg", "a.mp3"}) {
    SCOPED_TRACE(name);
    const fuzz::Reading whole = fuzz::ReadMedia(folder / name, 50);
    ASSERT_GT(whole.streams * whole.sounds, 0);
    ASSERT_EQ(whole.pictures > 0, whole.streams > 1);
    for (int i = 0; i < 40; ++i) {
      std::string bytes = ReadFile(folder / name);
      for (std::size_t n = 0; n <= random() % 3 && bytes.size() > 8; ++n) Damage(random, bytes);
      WriteFile(damaged, bytes);
      read += fuzz::ReadMedia(damaged, random()).sounds > 0 ? 1 : 0;
    }
  }
  EXPECT_GT(read, 100) << "damage that leaves nothing to read tests nothing";
}

}  // namespace
}  // namespace zel::test
