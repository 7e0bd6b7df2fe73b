#include "C/PlatformHandle.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

struct ChosenDevice final : platform::Device {
  explicit ChosenDevice(std::string chosen) : version(std::move(chosen)) {}
  std::string systemVersion() const override { return version; }
  const std::string version;
};

platform::Platform makePlatform(const quillmar_platform_options& chosen) {
  platform::DefaultPlatformOptions options;
  options.dataDirectory = orEmpty(chosen.data_directory);
  options.serviceUrl = orEmpty(chosen.service_url);
  options.attributionUrl = orEmpty(chosen.attribution_url);
  options.caFile = orEmpty(chosen.ca_file);
  options.proxy = orEmpty(chosen.proxy);
  if (chosen.max_answer_bytes != 0) {
    options.maxAnswerBytes = static_cast<std::size_t>(chosen.max_answer_bytes);
  }
  if (chosen.max_connections != 0) {
    options.maxConnections = chosen.max_connections;
  }
  options.proxyFromEnvironment = chosen.proxy_from_environment;
  platform::Platform members = platform::makeDefaultPlatform(options);
  if (chosen.system_version != nullptr) {
    members.device = std::make_shared<ChosenDevice>(chosen.system_version);
  }
  return members;
}

}  // namespace

}  // namespace quillmar

using namespace quillmar;

const char* quillmar_version(void) {
  return Config::sdkVersionNumber.data();
}

quillmar_status quillmar_platform_create(const quillmar_platform_options* options, quillmar_platform** platform) {
  const auto chosen = options != nullptr ? received(options) : quillmar_platform_options{};
  if (platform == nullptr || !chosen) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    auto handle = std::make_unique<quillmar_platform>();
    handle->members = makePlatform(*chosen);
    *platform = handle.release();
    return QUILLMAR_OK;
  });
}

void quillmar_platform_retain(quillmar_platform* platform) {
  retain(platform);
}
void quillmar_platform_release(quillmar_platform* platform) {
  release(platform);
}

quillmar_status quillmar_set_shared_platform(const quillmar_platform* platform) {
  if (platform == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    platform::setSharedPlatform(membersOf(*platform));
    return QUILLMAR_OK;
  });
}
