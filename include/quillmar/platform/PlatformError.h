#pragma once

#include <string>

namespace quillmar::platform {

/// An error of the platform: its localized description.
struct PlatformError {
  std::string localizedDescription;
};

}  // namespace quillmar::platform
