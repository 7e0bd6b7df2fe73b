#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillmar {

/// The double nearest to a decimal floating-point number ("9.99", "-1e3", ".5"). Nothing unless the whole text is one
/// and the result is finite. Does not depend on the locale.
std::optional<double> parseDecimal(std::string_view text);

/// The same for a text that is such a number; infinite when no double is near.
double nearestDouble(const std::string& number);

/// The integer that a JSON number denotes exactly, however it is spelled: 63, 63.0 and 6300e-2, but not
/// 63.00000000000000001. Nothing for a fraction, and beyond 64 bits. The text must be a JSON number.
std::optional<std::int64_t> exactInteger(std::string_view number);

/// The shortest decimal text that reads back as `value`, which must be finite.
std::string decimalText(double value);

}  // namespace quillmar
