#include "Json/DecimalNumber.h"

#include <fmt/format.h>
#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

#if defined(__APPLE__)
#include <xlocale.h>
#endif

namespace quillmar {

namespace {

bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

/// Takes the digits at the front of `text` away and tells whether there were any.
bool skipDigits(std::string_view& text) noexcept {
  const auto end = std::find_if_not(text.begin(), text.end(), isDigit);
  const bool any = end != text.begin();
  text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
  return any;
}

bool skipAnyOf(std::string_view& text, std::string_view characters) noexcept {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

bool isDecimal(std::string_view text) noexcept {
  skipAnyOf(text, "+-");
  bool digits = skipDigits(text);
  if (skipAnyOf(text, ".")) {
    digits = skipDigits(text) || digits;
  }
  if (digits && skipAnyOf(text, "eE")) {
    skipAnyOf(text, "+-");
    digits = skipDigits(text);
  }
  return digits && text.empty();
}

}  // namespace

std::optional<double> parseDecimal(std::string_view text) {
  if (!isDecimal(text)) {
    return std::nullopt;
  }
  const double value = nearestDouble(std::string(text));
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

double nearestDouble(const std::string& number) {
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(number.c_str(), nullptr, cLocale);
}

std::optional<std::int64_t> exactInteger(std::string_view number) {
  const bool negative = skipAnyOf(number, "-");
  // The digits without the point, and the power of ten that they are multiplied with.
  const std::size_t mantissaEnd = std::min(number.find_first_of("eE"), number.size());
  if (mantissaEnd == number.size() && number.back() != '0' && number.find('.') != std::string_view::npos) {
    return std::nullopt;  // most numbers that are not spelled as integers, at no price
  }
  std::string digits(number.substr(0, mantissaEnd));
  std::int64_t power = 0;
  if (mantissaEnd < number.size()) {
    number.remove_prefix(mantissaEnd + 1);
    const bool negativePower = number.starts_with('-');
    skipAnyOf(number, "+-");
    for (const char digit : number) {
      power = std::min<std::int64_t>(10 * power + (digit - '0'), std::numeric_limits<int>::max());  // more is the same
    }
    power = negativePower ? -power : power;
  }
  if (const std::size_t point = digits.find('.'); point != std::string::npos) {
    power -= static_cast<std::int64_t>(digits.size() - point - 1);
    digits.erase(point, 1);
  }
  digits.erase(0, digits.find_first_not_of('0'));
  if (digits.empty()) {
    return 0;
  }
  const std::size_t length = digits.find_last_not_of('0') + 1;
  power += static_cast<std::int64_t>(digits.size() - length);
  constexpr std::int64_t mostDigits = std::numeric_limits<std::int64_t>::digits10 + 1;
  if (power < 0 || power + static_cast<std::int64_t>(length) > mostDigits) {
    return std::nullopt;
  }
  digits.resize(length + static_cast<std::size_t>(power), '0');
  digits.insert(0, negative ? "-" : "");
  std::int64_t value = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return result.ec == std::errc() ? std::optional(value) : std::nullopt;
}

std::string decimalText(double value) {
  return fmt::format("{}", value);
}

}  // namespace quillmar
