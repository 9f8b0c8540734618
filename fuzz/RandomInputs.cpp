// Feeds random inputs to a fuzzer where libFuzzer is not at hand, so that every build compiles the
// fuzzers and every test run tries them.
//
// Usage: PROGRAM COUNT LARGEST
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int count = std::atoi(argv[1]);
  const std::size_t largest = std::strtoul(argv[2], nullptr, 10);
  // What times, ids and UTF-8 are made of, and what they are not.
  constexpr std::string_view kLikely = "0123456789aF:.,-+ms{}\x7F\xC3\xA4\xE2\x82\xF0\x9F\x80";
  std::mt19937 random(1);
  for (int i = 0; i < count; ++i) {
    std::vector<std::uint8_t> bytes(random() % (largest + 1));
    const bool likely = random() % 4 != 0;
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(likely ? kLikely[random() % kLikely.size()] : random());
    }
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  return 0;
}
