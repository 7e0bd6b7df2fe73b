#pragma once

#include <string_view>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Stores a setting. When the store cannot keep it beyond the process, an error line says so.
void storeSetting(platform::UserDefaults& userDefaults, std::string_view key, platform::PropertyListValue value);

/// The same for forgetting one.
void removeSetting(platform::UserDefaults& userDefaults, std::string_view key);

}  // namespace quillmar
