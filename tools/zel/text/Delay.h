// Delays as people write them.
#pragma once

#include <string>
#include <string_view>

namespace zel::tool {

/// Parses a delay: a decimal number of seconds, with or without a unit ("1.273", "1273ms",
/// "-0.5s", "250us"), or a clock time ("1:30", "-00:00:01.273"). The result is the double nearest
/// to the decimal value that was written, whatever the locale.
/// @return seconds, finite.
/// @param option whose value `text` is, for the messages
/// @throws UsageError for any other text, "inf", "nan", and values beyond the range of a double
double ParseDelay(const std::string& option, std::string_view text);

/// Seconds as a clock time with milliseconds: "0:01:02.345".
std::string ClockText(double seconds);

/// The same with as many more digits as tell one time stamp (100-ns units) from the next.
std::string ExactClockText(double seconds);

}  // namespace zel::tool
