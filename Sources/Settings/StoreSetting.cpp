#include "Settings/StoreSetting.h"

#include <utility>

#include "Logging/Log.h"

namespace quillmar {

void storeSetting(platform::UserDefaults& userDefaults, std::string_view key, platform::PropertyListValue value) {
  if (const std::error_code error = userDefaults.set(key, std::move(value))) {
    Log::error("UserDefaults - Failed to store {}: {}", key, error.message());
  }
}

void removeSetting(platform::UserDefaults& userDefaults, std::string_view key) {
  if (const std::error_code error = userDefaults.remove(key)) {
    Log::error("UserDefaults - Failed to remove {}: {}", key, error.message());
  }
}

void removeData(platform::UserDefaults& userDefaults, std::string_view key) {
  storeSetting(userDefaults, key, "");
  removeSetting(userDefaults, key);
}

}  // namespace quillmar
