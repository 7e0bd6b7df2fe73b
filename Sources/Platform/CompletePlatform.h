#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "Platform/PlatformMembers.h"

namespace quillmar::platform {

/// `platform`, if nothing that an instance over `store` needs is missing. Throws `std::invalid_argument` with the name
/// of what is.
inline Platform completePlatform(const Platform& platform, const std::shared_ptr<UserDefaults>& store) {
  if (const auto missing = missingMember(platform)) {
    throw std::invalid_argument("Platform::" + std::string(*missing) + " is missing");
  }
  if (!store) {
    throw std::invalid_argument("the settings store is missing");
  }
  return platform;
}

}  // namespace quillmar::platform
