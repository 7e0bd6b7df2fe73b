#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quillmar {

/// What is done with '\n'. Kept ones are for a text that is laid out in lines on purpose.
enum class LineEnds : std::uint8_t { escaped, kept };

/// Whether `text` may hold something that `withoutControls` escapes; never false when it does. One quick look.
bool mayHoldControls(std::string_view text) noexcept;

/// The text with what ends a line, steers a terminal or turns the direction of writing escaped as in JSON: "\n", "\r",
/// "\t", else "\u001b". That is C0, DEL, C1, U+2028 to U+202E and U+2066 to U+2069, in UTF-8. A backslash stays one, so
/// this is for reading and cannot be undone.
std::string withoutControls(std::string_view text, LineEnds lineEnds = LineEnds::escaped);

}  // namespace quillmar
