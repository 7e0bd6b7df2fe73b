#include "Settings/EnabledFlag.h"

#include "Logging/Logger.h"
#include "Settings/Config.h"

namespace quillmar {

bool isSDKEnabled(const platform::UserDefaults& userDefaults, std::string_view label) {
  if (!userDefaults.object(Config::sdkEnabled)) {
    return true;
  }
  const bool enabled = userDefaults.boolean(Config::sdkEnabled);
  Logger::debug("{}: {}", label, enabled);
  return enabled;
}

}  // namespace quillmar
