#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quillmar::cli {

/// Reads "3d2h", "-1h30m", "90s": an optional sign, then days, hours, minutes and seconds in this order, each at most
/// once. Nothing for other texts and for more than a hundred years, which a clock could not be moved by.
std::optional<std::chrono::seconds> parseDuration(std::string_view text);

/// The same form, without parts that are 0; "0s" for none at all.
std::string formatDuration(std::chrono::seconds duration);

}  // namespace quillmar::cli
