#include "tools/zel/text/Delay.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>

#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

constexpr std::string_view kDigits = "0123456789";

/// Takes leading digits off `text`.
std::string_view TakeDigits(std::string_view& text) {
  const std::size_t size = std::min(text.find_first_not_of(kDigits), text.size());
  const std::string_view digits = text.substr(0, size);
  text.remove_prefix(size);
  return digits;
}

bool Take(std::string_view& text, char wanted) {
  if (text.empty() || text.front() != wanted) return false;
  text.remove_prefix(1);
  return true;
}

/// A fraction with its point; empty when there is none.
std::string_view TakeFraction(std::string_view& text) {
  const std::string_view whole = text;
  if (!Take(text, '.')) return {};
  const std::size_t digits = TakeDigits(text).size();
  return whole.substr(0, digits + 1);
}

/// A decimal number that is exactly mantissa x 10^exponent, not yet rounded to a double.
struct Decimal {
  std::string mantissa;
  long exponent = 0;
};

/// "SECONDS[.FRACTION][eN][unit]".
std::optional<Decimal> ParseSeconds(std::string_view text) {
  const std::string_view digits = TakeDigits(text);
  const std::string_view fraction = TakeFraction(text);
  if (digits.empty() && fraction.size() < 2) return {};
  Decimal number{"0"};
  number.mantissa.append(digits).append(fraction);
  if (number.mantissa.back() == '.') number.mantissa.pop_back();

  if (Take(text, 'e') || Take(text, 'E')) {
    const bool minus = Take(text, '-');
    if (!minus) Take(text, '+');
    const std::string_view exponent = TakeDigits(text);
    if (exponent.empty()) return {};
    // Nine digits are enough: such exponents are far beyond the range of a double.
    std::from_chars(exponent.data(), exponent.data() + std::min<std::size_t>(exponent.size(), 9),
                    number.exponent);
    if (minus) number.exponent = -number.exponent;
  }
  if (text == "ms") {
    number.exponent -= 3;
  } else if (text == "us") {
    number.exponent -= 6;
  } else if (!text.empty() && text != "s") {
    return {};
  }
  return number;
}

/// "[HOURS:]MINUTES:SECONDS[.FRACTION]". Only the leading field may exceed 59.
std::optional<Decimal> ParseClock(std::string_view text) {
  unsigned long long seconds = 0;
  int fields = 0;
  do {
    const std::string_view digits = TakeDigits(text);
    // 15 digits times 3,600 fit 64 bits.
    if (digits.empty() || digits.size() > 15 || ++fields > 3) return {};
    unsigned long long value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (fields > 1 && (digits.size() > 2 || value > 59)) return {};
    seconds = seconds * 60 + value;
  } while (Take(text, ':'));
  const std::string_view fraction = TakeFraction(text);
  if (fields < 2 || fraction.size() == 1 || !text.empty()) return {};
  return Decimal{std::to_string(seconds) + std::string(fraction)};
}

bool NamesNoNumber(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return lower == "inf" || lower == "infinity" || lower == "nan";
}

std::string ClockText(double seconds, int decimals) {
  // A clock is of no use for longer times, which would also overflow the conversion.
  constexpr double kLimit = 1e11;
  if (!(std::fabs(seconds) < kLimit)) {
    char plain[32];
    std::snprintf(plain, sizeof(plain), "%g s", seconds);
    return plain;
  }
  long long perSecond = 1;
  for (int i = 0; i < decimals; ++i) perSecond *= 10;
  const long long units = std::llround(std::fabs(seconds) * static_cast<double>(perSecond));
  const long long whole = units / perSecond;
  char clock[64];
  std::snprintf(clock, sizeof(clock), "%s%lld:%02lld:%02lld.%0*lld",
                seconds < 0 && units > 0 ? "-" : "", whole / 3600, whole / 60 % 60, whole % 60,
                decimals, units % perSecond);
  return clock;
}

}  // namespace

double ParseDelay(const std::string& option, std::string_view text) {
  std::string_view rest = text;
  const bool minus = Take(rest, '-');
  if (!minus) Take(rest, '+');

  const auto notFinite = [&] {
    return UsageError(option + ": '" + std::string(text) + "' is not finite");
  };
  if (NamesNoNumber(rest)) throw notFinite();
  std::optional<Decimal> number = ParseSeconds(rest);
  if (!number) number = ParseClock(rest);
  if (!number) {
    throw UsageError(option + ": '" + std::string(text) +
                     "' is no time (examples: 1.273, 1273ms, -0.5s, 00:00:01.273)");
  }

  const std::string decimal = number->mantissa + "e" + std::to_string(number->exponent);
  double seconds = 0;
  const auto result = std::from_chars(decimal.data(), decimal.data() + decimal.size(), seconds);
  if (result.ec == std::errc::result_out_of_range) {
    const bool zero = number->mantissa.find_first_not_of("0.") == std::string::npos;
    if (number->exponent >= 0 && !zero) throw notFinite();
    seconds = 0;
  }
  return minus ? -seconds : seconds;
}

std::string ClockText(double seconds) {
  return ClockText(seconds, 3);
}

std::string ExactClockText(double seconds) {
  std::string text = ClockText(seconds, 7);
  const std::size_t point = text.rfind('.');
  if (!text.ends_with('s') && point != std::string::npos) {
    text.resize(std::max(text.find_last_not_of('0'), point + 3) + 1);
  }
  return text;
}

}  // namespace zel::tool
