#pragma once

#include <optional>
#include <string_view>

#include "quillmar/platform/Platform.h"

namespace quillmar::platform {

/// The name of the first member that must not be null and is; nothing when the bundle is whole.
std::optional<std::string_view> missingMember(const Platform& platform) noexcept;

/// What requests are sent to: `url`, or `builtIn` when it is empty, without trailing slashes, since each path begins
/// with one. A part of one of the two texts.
std::string_view originOf(std::string_view url, std::string_view builtIn) noexcept;

}  // namespace quillmar::platform
