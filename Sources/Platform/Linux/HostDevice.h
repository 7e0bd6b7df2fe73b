#pragma once

#include <string>

#include "quillmar/platform/Device.h"

namespace quillmar::platform {

/// A machine whose system has no version that the ad networks know.
class HostDevice : public Device {
 public:
  std::string systemVersion() const override { return "0"; }
};

}  // namespace quillmar::platform
