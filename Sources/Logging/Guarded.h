#pragma once

#include <exception>
#include <utility>

#include "Logging/Log.h"
#include "Platform/OwnProcess.h"

namespace quillmar {

/// Runs what a public function does; nothing gets out to the host. Gives what `body` gives, or `otherwise` when that
/// fails and in a forked child, where nothing is run, and nothing logged: the log's locks may be held there for ever.
template <class Result, class Body>
Result guarded(const char* operation, Result otherwise, Body body) noexcept {
  if (!OwnProcess::isHere()) {
    return otherwise;
  }
  try {
    return body();
  } catch (const std::exception& error) {
    Log::error("Quillmar - {} failed: {}", operation, error.what());
  } catch (...) {
    Log::error("Quillmar - {} failed", operation);
  }
  return otherwise;
}

/// The same for a function that gives nothing.
template <class Body>
void guarded(const char* operation, Body body) noexcept {
  guarded(operation, nullptr, [&body] {
    body();
    return nullptr;
  });
}

}  // namespace quillmar
