#pragma once

#include <exception>

#include "Logging/Logger.h"

namespace quillmar {

/// Runs what a public function does; nothing gets out to the host.
template <class Body>
void guarded(const char* operation, Body body) noexcept {
  try {
    body();
  } catch (const std::exception& error) {
    Logger::error("Quillmar - {} failed: {}", operation, error.what());
  } catch (...) {
    Logger::error("Quillmar - {} failed", operation);
  }
}

}  // namespace quillmar
