#pragma once

#include <string_view>

namespace quillmar {

/// Takes the next token off the front of a valid JSON text: a bracket, a comma, a colon, or a whole scalar with its
/// quotes. Empty at the end.
std::string_view takeJsonToken(std::string_view& json) noexcept;

}  // namespace quillmar
