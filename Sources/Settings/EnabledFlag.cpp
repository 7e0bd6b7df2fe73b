#include "Settings/EnabledFlag.h"

#include <optional>

#include "Logging/Log.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {
/// What the service has said; nothing before it has said anything.
std::optional<bool> storedFlag(const platform::UserDefaults& userDefaults) {
  return userDefaults.object(Config::sdkEnabled) ? std::optional(userDefaults.boolean(Config::sdkEnabled))
                                                 : std::nullopt;
}
}  // namespace

bool isSDKEnabled(const platform::UserDefaults& userDefaults) {
  return storedFlag(userDefaults).value_or(true);
}

bool isSDKEnabled(const platform::UserDefaults& userDefaults, std::string_view label) {
  const std::optional<bool> flag = storedFlag(userDefaults);
  if (flag) {
    Log::debug("{}: {}", label, *flag);
  }
  return flag.value_or(true);
}

}  // namespace quillmar
