// Feeds files to the decoder manager. The first byte of the input chooses places to seek to, the
// rest is the file.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/ReadMedia.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int file = memfd_create("media", MFD_CLOEXEC);
  if (file < 0 || write(file, data + 1, size - 1) != static_cast<ssize_t>(size - 1)) std::abort();
  zel::fuzz::ReadMedia("/proc/self/fd/" + std::to_string(file), data[0]);
  close(file);
  return 0;
}
