#pragma once

#include <string_view>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Stores a setting. When the store cannot keep it beyond the process, an error line says so.
void storeSetting(platform::UserDefaults& userDefaults, std::string_view key, platform::PropertyListValue value);

/// The same for forgetting one.
void removeSetting(platform::UserDefaults& userDefaults, std::string_view key);

/// The same for a data value whose bytes may stay on the disk for a while: in two steps, since a store may take those
/// of a removed one off the disk there and then, and wait for that.
void removeData(platform::UserDefaults& userDefaults, std::string_view key);

}  // namespace quillmar
