#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmar {

/// The double nearest to a decimal floating-point number ("9.99", "-1e3", ".5"). Nothing unless the whole text is one
/// and the result is finite. Does not depend on the locale.
std::optional<double> parseDecimal(std::string_view text);

/// The shortest decimal text that reads back as `value`, which must be finite.
std::string decimalText(double value);

}  // namespace quillmar
