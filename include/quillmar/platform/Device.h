#pragma once

#include <string>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// The device that the app runs on.
class QUILLMAR_API Device {
 public:
  virtual ~Device() = default;

  /// The version of the system, for example "17.4.1"; "0" where there is none of the kind that the ad networks speak
  /// of. Called from any thread; does not block. On Apple systems: the current device's `systemVersion`.
  virtual std::string systemVersion() const = 0;
};

}  // namespace quillmar::platform
