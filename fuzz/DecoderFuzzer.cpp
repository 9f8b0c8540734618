// Feeds files to the decoder manager. The first byte of the input chooses places to seek to, the
// rest is the file.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/ReadMedia.h"
#include "zel/base/Component.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const zel::Ref<IMediaDecoderMgr> manager = [] {
    zel::Ref<IMediaDecoderMgr> made;
    ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, made.ReceiveVoid());
    if (!made) std::abort();
    return made;
  }();
  if (size == 0) return 0;
  const int file = memfd_create("media", MFD_CLOEXEC);
  if (file < 0) std::abort();
  for (std::size_t at = 1; at < size;) {
    const ssize_t written = write(file, data + at, size - at);
    if (written <= 0) std::abort();
    at += static_cast<std::size_t>(written);
  }
  zel::fuzz::ReadMedia(manager.get(), "/proc/self/fd/" + std::to_string(file), data[0]);
  close(file);
  return 0;
}
