#pragma once

#include <string>

namespace quillmar::platform {

/// The host app's bundle.
struct Bundle {
  std::string identifier;

  /// The bundle of the running app.
  static Bundle main();
};

}  // namespace quillmar::platform
