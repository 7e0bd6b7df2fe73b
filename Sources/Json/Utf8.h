#pragma once

#include <string>
#include <string_view>

namespace quillmar {

/// The text with each byte that is no part of well-formed UTF-8 replaced by U+FFFD.
std::string repairedUtf8(std::string text);

/// The length of the well-formed UTF-8 prefix of `text`.
std::size_t validUtf8Prefix(std::string_view text) noexcept;

}  // namespace quillmar
