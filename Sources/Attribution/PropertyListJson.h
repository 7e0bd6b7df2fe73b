#pragma once

#include <optional>
#include <string>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// A stored value as JSON. Nothing when it is, or holds, what JSON has no form for: bytes, dates, infinite numbers.
std::optional<std::string> propertyListJson(const platform::PropertyListValue& value);

}  // namespace quillmar
