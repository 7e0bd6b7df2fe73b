#pragma once

#include <string>

#include "quillmar/platform/Device.h"

namespace quillmar::platform {

/// The system as `NSProcessInfo` knows it, which works in extensions and off the main thread, too.
class FoundationDevice : public Device {
 public:
  std::string systemVersion() const override;
};

}  // namespace quillmar::platform
