#pragma once

#include <string_view>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Whether the service lets the library work: enabled until it says otherwise.
bool isSDKEnabled(const platform::UserDefaults& userDefaults);

/// The same; when the service has said something, writes the debug line "<label>: true" or "<label>: false".
bool isSDKEnabled(const platform::UserDefaults& userDefaults, std::string_view label);

}  // namespace quillmar
