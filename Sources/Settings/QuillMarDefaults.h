#pragma once

#include <memory>
#include <string_view>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// The name of the library's own settings suite.
inline constexpr std::string_view quillMarDefaultsSuite = "tech.quill-mar.quillmaruserdefaults";

/// The library's settings store on a platform; one object a platform. The suite is opened at the first use of the
/// returned store, not here; when it cannot be opened, the standard store silently takes its place.
std::shared_ptr<platform::UserDefaults> quillMarDefaults(
    const std::shared_ptr<platform::UserDefaultsProvider>& provider);

}  // namespace quillmar
