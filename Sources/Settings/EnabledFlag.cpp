#include "Settings/EnabledFlag.h"

#include "Logging/Log.h"
#include "quillmar/Config.h"

namespace quillmar {

bool isSDKEnabled(const platform::UserDefaults& userDefaults) {
  const auto flag = userDefaults.object(Config::sdkEnabled);
  return !flag || flag->boolean();
}

bool isSDKEnabled(const platform::UserDefaults& userDefaults, std::string_view label) {
  const auto flag = userDefaults.object(Config::sdkEnabled);
  if (flag) {
    Log::debug("{}: {}", label, flag->boolean());
  }
  return !flag || flag->boolean();
}

}  // namespace quillmar
