#pragma once

#include <string>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// The host app's bundle.
struct QUILLMAR_API Bundle {
  std::string identifier;
  /// The app's name and version as `QuillmarOptions::sendUserAgent` tells them to the event service; either may be
  /// empty. On Linux the name is that of the executable, and there is no version.
  /// @{
  std::string name = {};
  std::string version = {};
  /// @}

  /// The bundle of the running app.
  static Bundle main();
};

}  // namespace quillmar::platform
