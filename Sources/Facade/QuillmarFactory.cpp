#include "quillmar/QuillmarFactory.h"

#include <utility>

#include "Logging/Logger.h"
#include "Platform/OwnProcess.h"
#include "Settings/QuillMarDefaults.h"

namespace quillmar {

namespace {

/// The library's own suite of that platform; none in a forked child, where instances do nothing, because finding it
/// takes a lock.
std::shared_ptr<platform::UserDefaults> suiteOf(const platform::Platform& platform) {
  return OwnProcess::isHere() ? quillMarDefaults(platform.userDefaults) : nullptr;
}

}  // namespace

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                          platform::Bundle bundle) noexcept {
  const bool here = OwnProcess::isHere();
  return createQuillmar(std::move(userDefaults), std::move(bundle),
                        here ? platform::sharedPlatform() : platform::Platform());
}

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                          platform::Bundle bundle,
                                                          const platform::Platform& platform) noexcept {
  try {
    return std::make_shared<Quillmar>(std::move(userDefaults), std::move(bundle), platform);
  } catch (...) {
    Logger::error("Quillmar - Making an instance failed");
    return nullptr;
  }
}

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(const platform::Platform& platform) noexcept {
  try {
    return createQuillmar(suiteOf(platform), platform::Bundle::main(), platform);
  } catch (...) {
    Logger::error("Quillmar - Making an instance failed");
    return nullptr;
  }
}

std::shared_ptr<QuillmarASAAttribution> QuillmarFactory::createQuillmarASAAttribution(
    const platform::Platform& platform) noexcept {
  try {
    return std::make_shared<QuillmarASAAttribution>(suiteOf(platform), platform::Bundle::main(), platform);
  } catch (...) {
    Logger::error("Quillmar - Making an instance failed");
    return nullptr;
  }
}

}  // namespace quillmar
