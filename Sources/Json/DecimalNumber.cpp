#include "Json/DecimalNumber.h"

#include <fmt/format.h>
#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>

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
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  const std::string terminated(text);
  const double value = strtod_l(terminated.c_str(), nullptr, cLocale);
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

std::string decimalText(double value) {
  return fmt::format("{}", value);
}

}  // namespace quillmar
