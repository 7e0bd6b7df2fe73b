#include "quillmar/QuillmarFactory.h"

#include <utility>

#include "Logging/Logger.h"
#include "Settings/QuillMarDefaults.h"

namespace quillmar {

std::shared_ptr<Quillmar> QuillmarFactory::createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                          platform::Bundle bundle) noexcept {
  return createQuillmar(std::move(userDefaults), std::move(bundle), platform::sharedPlatform());
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
    return createQuillmar(quillMarDefaults(platform.userDefaults), platform::Bundle::main(), platform);
  } catch (...) {
    Logger::error("Quillmar - Making an instance failed");
    return nullptr;
  }
}

std::shared_ptr<QuillmarASAAttribution> QuillmarFactory::createQuillmarASAAttribution(
    const platform::Platform& platform) noexcept {
  try {
    return std::make_shared<QuillmarASAAttribution>(quillMarDefaults(platform.userDefaults), platform::Bundle::main(),
                                                    platform);
  } catch (...) {
    Logger::error("Quillmar - Making an instance failed");
    return nullptr;
  }
}

}  // namespace quillmar
