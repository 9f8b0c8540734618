#include "tools/zel/files/MemoryLimit.h"

#include <sys/resource.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
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

std::string MemoryLimitText() {
  return g_limit.empty() ? "" : "; --max-memory is " + g_limit;
}

}  // namespace zel::tool
