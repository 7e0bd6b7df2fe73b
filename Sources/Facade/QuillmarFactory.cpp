#include "quillmar/QuillmarFactory.h"

#include <exception>
#include <utility>

#include "Logging/Log.h"
#include "Platform/OwnProcess.h"
#include "Settings/QuillMarDefaults.h"

namespace quillmar {

namespace {

/// Null, and a line in the log, when `make` throws.
template <class Make>
auto madeBy(Make make) noexcept -> decltype(make()) {
  try {
    return make();
  } catch (const std::exception& error) {
    Log::error("Quillmar - Making an instance failed: {}", error.what());
    return nullptr;
  }
}

/// The library's own suite of that platform; none in a forked child, where instances do nothing, because finding it
/// takes a lock.
std::shared_ptr<platform::UserDefaults> suiteOf(const platform::Platform& platform) {
  return OwnProcess::isHere() ? quillMarDefaults(platform.userDefaults) : nullptr;
}

}  // namespace

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                          platform::Bundle bundle) noexcept {
  return madeBy([&] {
    const bool here = OwnProcess::isHere();
    return std::make_shared<Quillmar>(std::move(userDefaults), std::move(bundle),
                                      here ? platform::sharedPlatform() : platform::Platform());
  });
}

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                          platform::Bundle bundle,
                                                          const platform::Platform& platform) noexcept {
  return madeBy([&] { return std::make_shared<Quillmar>(std::move(userDefaults), std::move(bundle), platform); });
}

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(const platform::Platform& platform) noexcept {
  return madeBy([&] { return std::make_shared<Quillmar>(suiteOf(platform), platform::Bundle::main(), platform); });
}

std::shared_ptr<QuillmarASAAttribution> QuillmarFactory::createQuillmarASAAttribution(
    const platform::Platform& platform) noexcept {
  return madeBy(
      [&] { return std::make_shared<QuillmarASAAttribution>(suiteOf(platform), platform::Bundle::main(), platform); });
}

}  // namespace quillmar
