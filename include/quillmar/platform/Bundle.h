#pragma once

#include <string>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// The host app's bundle.
struct QUILLMAR_API Bundle {
  std::string identifier;

  /// The bundle of the running app.
  static Bundle main();
};

}  // namespace quillmar::platform
