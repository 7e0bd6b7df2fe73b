#pragma once

#include <optional>
#include <string_view>

namespace quillmar::cli {

/// The part of `object` that spells the value of the member `name`; of several the last one, which is also the one
/// that the parser keeps. Nothing when there is none. `object` is the text of a JSON object that has been parsed.
std::optional<std::string_view> jsonMemberText(std::string_view object, std::string_view name);

}  // namespace quillmar::cli
