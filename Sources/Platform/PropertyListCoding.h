#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

/// The stored form of a property-list value: a tag byte, then the content; lengths and numbers are little-endian,
/// 8 bytes wide. Dates are nanoseconds since 1970. Nothing when arrays and dictionaries are nested too deep.
std::optional<std::string> encodePropertyList(const PropertyListValue& value);

/// The value in `bytes`, or nothing when they are not exactly one encoded value. Takes any bytes.
std::optional<PropertyListValue> decodePropertyList(std::string_view bytes);

}  // namespace quillmar::platform
