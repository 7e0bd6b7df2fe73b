#pragma once

#include <string_view>

namespace quillmar {

/// True when `version` is `minimum` or later. The numbers between the dots are compared one by one ("16.10" is later
/// than "16.2"); a missing one counts as 0 ("18" is "18.0"), and so does what begins with no digit.
bool isVersionAtLeast(std::string_view version, std::string_view minimum) noexcept;

}  // namespace quillmar
