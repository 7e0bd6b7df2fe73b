#include "Platform/PlatformMembers.h"

#include <utility>

namespace quillmar::platform {

std::optional<std::string_view> missingMember(const Platform& platform) noexcept {
  const std::pair<bool, std::string_view> members[] = {
      {platform.executor != nullptr, "executor"},
      {platform.clock != nullptr, "clock"},
      {platform.http != nullptr, "http"},
      {platform.files != nullptr, "files"},
      {platform.userDefaults != nullptr, "userDefaults"},
      {platform.storeKitAdNetwork != nullptr, "storeKitAdNetwork"},
      {platform.adAttributionKit != nullptr, "adAttributionKit"},
      {platform.device != nullptr, "device"},
      {platform.notifications != nullptr, "notifications"},
      {platform.logSink != nullptr, "logSink"},
      {platform.attributionToken != nullptr, "attributionToken"},
      {platform.subscriptionUpdates != nullptr, "subscriptionUpdates"},
  };
  for (const auto& [isThere, name] : members) {
    if (!isThere) {
      return name;
    }
  }
  return std::nullopt;
}

std::string_view originOf(std::string_view url, std::string_view builtIn) noexcept {
  std::string_view origin = url.empty() ? builtIn : url;
  while (origin.ends_with('/')) {
    origin.remove_suffix(1);
  }
  return origin;
}

}  // namespace quillmar::platform
