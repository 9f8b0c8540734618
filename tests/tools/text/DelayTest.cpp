#include <gtest/gtest.h>

#include <sstream>

#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

TEST(Delay, IsTheDoubleNearestToTheText) {
  // 0.1ms and 123456.7us are rounded once: 0.1 * 1e-3 would be another double.
  std::istringstream cases(
      "0 0  1.273 1.273  1273ms 1.273  1.273s 1.273  1273000us 1.273  +1.273 1.273 "
      "12.73e-1 1.273  0:01.273 1.273  00:00:01.273 1.273  -0.5s -0.5  -00:00:00.5 -0.5 "
      ".5 0.5  5. 5  90:00 5400  1:30:00 5400  100:59:59.9999 363599.9999  1.00012 1.00012 "
      "0.1ms 0.0001  123456.7us 0.1234567  1e300 1e300  1e-400 0  0e999 0");
  for (std::string text, seconds; cases >> text >> seconds;) {
    EXPECT_EQ(ParseDelay("--delay", text), std::stod(seconds)) << text;
  }
}

TEST(Delay, OtherTextIsAUsageErrorThatShowsIt) {
  std::istringstream cases(
      "|\x20|1,5|abc|1.273x|1h|--5|+-5|1:2:3:4|1:60|1:00.5s|.|0x10|1 s| 1|1:|:1|1.2.3|1e|e1|-|ms|"
      "1:-2|1:00.|1:000|1:00e2|infx|\xEF\xBC\x91|inf|-inf|NaN|+Infinity|1e309|-1e400|"
      "1e999999999999ms");
  for (std::string text; std::getline(cases, text, '|');) {
    try {
      ParseDelay("--at", text);
      ADD_FAILURE() << text;
    } catch (const UsageError& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with("--at: '" + text + "' is n"));
    }
  }
}

TEST(Delay, ClockText) {
  std::istringstream cases(
      "-0.0001 0:00:00.000 -0:00:00.0001  3725.0426 1:02:05.043 1:02:05.0426  "
      "-59.9996 -0:01:00.000 -0:00:59.9996  1.5 0:00:01.500 0:00:01.500  "
      "0.99999997 0:00:01.000 0:00:01.000  -62.0333667 -0:01:02.033 -0:01:02.0333667");
  for (std::string seconds, rounded, exact; cases >> seconds >> rounded >> exact;) {
    EXPECT_EQ(ClockText(std::stod(seconds)), rounded);
    EXPECT_EQ(ExactClockText(std::stod(seconds)), exact);
  }
  EXPECT_EQ(ClockText(1e300) + ExactClockText(1e300), "1e+300 s1e+300 s");
}

}  // namespace
}  // namespace zel::tool
