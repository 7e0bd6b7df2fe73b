#pragma once

#include <memory>

#include "quillmar/c/quillmar.h"
#include "quillmar/platform/Platform.h"

namespace quillmar::test {

constexpr auto invalid = QUILLMAR_ERROR_INVALID_ARGUMENT;

/// The adapter that is given, behind a table as a host in C brings it, and the library's adapter over that.
/// @{
std::shared_ptr<platform::HttpTransport> throughC(const std::shared_ptr<platform::HttpTransport>& adapter);
std::shared_ptr<platform::FileManager> throughC(const std::shared_ptr<platform::FileManager>& adapter);
std::shared_ptr<platform::UserDefaultsProvider> throughC(
    const std::shared_ptr<platform::UserDefaultsProvider>& adapter);
/// @}

}  // namespace quillmar::test
