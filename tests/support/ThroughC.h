#pragma once

#include "quillmar/simulated/SimulatedPlatform.h"

namespace quillmar::test {

/// The adapters that are given, each behind a table as a host in C brings it, and the library's adapter over that:
/// executor, HTTP, files, settings, ad networks, token, subscriptions, log.
platform::Platform throughC(const platform::Platform& platform);

/// One of them alone.
template <class Seam>
std::shared_ptr<Seam> throughC(std::shared_ptr<Seam> platform::Platform::* member, std::shared_ptr<Seam> adapter) {
  platform::Platform platform = simulated::SimulatedPlatform(platform::Clock::TimePoint{}).platform();
  platform.*member = std::move(adapter);
  return throughC(platform).*member;
}

}  // namespace quillmar::test
