// Delays as people write them.
#pragma once

#include <string>
#include <string_view>

namespace zel::tool {

/// Parses a delay: a decimal number of seconds, with or without a unit ("1.273", "1273ms",
/// "-0.5s", "250us"), or a clock time ("1:30", "-00:00:01.273"). The result is the double nearest
/// to the written decimal value, in any locale.
/// @param option the option's name, for the messages
/// @return seconds, finite
/// @throws UsageError for any other text, "inf", "nan", and values beyond the range of a double
double ParseDelay(const std::string& option, std::string_view text);

/// Seconds as a clock time with milliseconds: "0:01:02.345".
std::string ClockText(double seconds);

/// The same with up to seven decimals, which tell time stamps (100-ns units) from each other.
std::string ExactClockText(double seconds);

}  // namespace zel::tool
