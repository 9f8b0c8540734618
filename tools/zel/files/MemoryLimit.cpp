#include "tools/zel/files/MemoryLimit.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

// Below this, the libraries cannot start.
constexpr std::uint64_t kLeast = 16 << 20;

std::string g_limit;

}  // namespace

void LimitMemory(const std::string& size) {
  constexpr std::string_view kUnits = "KMG";
  constexpr int kBitsOfUnit = 10;
  std::uint64_t count = 0;
  const char* const end = size.data() + size.size();
  const auto [stop, error] = std::from_chars(size.data(), end, count);
  int bits = 0;
  if (stop + 1 == end) {
    bits = kBitsOfUnit * static_cast<int>(kUnits.find(*stop) + 1);  // 0 for another letter.
  }
  const bool isNumber = error == std::errc() && (stop == end || bits > 0);
  if (!isNumber || count > UINT64_MAX >> bits || count << bits < kLeast) {
    throw UsageError("--max-memory: '" + size + "' is no size such as 500M, of 16M or more");
  }
  rlimit limit{};
  getrlimit(RLIMIT_DATA, &limit);
  limit.rlim_cur = count << bits;
  if (limit.rlim_max < limit.rlim_cur) limit.rlim_cur = limit.rlim_max;
  if (setrlimit(RLIMIT_DATA, &limit) != 0) throw Failure("--max-memory", std::strerror(errno));
  g_limit = size;
}

std::string MemoryLimitText(const std::exception& failure) {
  // The texts of the system and of FFmpeg, of a thread that cannot start, of a library that the
  // system cannot load, and of the command itself.
  const std::string reasons[] = {std::strerror(ENOMEM), std::strerror(EAGAIN),
                                 "failed to map segment", "more memory than there is"};
  const std::string_view text = failure.what();
  const bool isMemory =
      dynamic_cast<const std::bad_alloc*>(&failure) != nullptr ||
      std::any_of(std::begin(reasons), std::end(reasons), [&](const std::string& reason) {
        return text.find(reason) != std::string_view::npos;
      });
  return g_limit.empty() || !isMemory ? "" : "; --max-memory is " + g_limit;
}

}  // namespace zel::tool
