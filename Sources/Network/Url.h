#pragma once

#include <string_view>

namespace quillmar {

/// Whether `text` is an address that a request can be sent to: scheme://host, and what RFC 3986 lets follow. It holds
/// only characters that a URI may hold, and whole percent escapes. Of an address in brackets, only the characters are
/// looked at.
bool isUrl(std::string_view text) noexcept;

}  // namespace quillmar
