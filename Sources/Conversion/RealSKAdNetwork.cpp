#include "Conversion/RealSKAdNetwork.h"

#include <utility>

#include "Logging/Log.h"
#include "Platform/SystemVersion.h"

namespace quillmar {

namespace {
/// The platform always gets something that it can call.
platform::AdNetworkCompletion callable(platform::AdNetworkCompletion completion) {
  return completion ? std::move(completion) : [](const std::optional<platform::PlatformError>&) {};
}
}  // namespace

RealSKAdNetwork::RealSKAdNetwork(std::shared_ptr<platform::StoreKitAdNetwork> storeKit,
                                 std::shared_ptr<platform::Device> device) noexcept
    : storeKit_(std::move(storeKit)), device_(std::move(device)) {}

void RealSKAdNetwork::updatePostbackConversionValue_iOS16_1_WithCoarse(int fineValue, std::any coarseValue,
                                                                       bool lockWindow,
                                                                       CompletionHandler completionHandler) {
  if (!systemIsAtLeast("16.1")) {
    return;
  }
  const auto* const coarse = std::any_cast<platform::SKAdNetworkCoarseConversionValue>(&coarseValue);
  if (coarse == nullptr) {
    // A fault of the caller; a host must not crash for it.
    Log::error("RealSKAdNetwork - The coarse value is not one of the platform's");
    return;
  }
  storeKit_->updatePostbackConversionValue(fineValue, *coarse, lockWindow, callable(std::move(completionHandler)));
}

void RealSKAdNetwork::updatePostbackConversionValue_iOS16_1_WithoutCoarse(int fineValue, bool,
                                                                          CompletionHandler completionHandler) {
  if (systemIsAtLeast("16.1")) {
    storeKit_->updatePostbackConversionValue(fineValue, callable(std::move(completionHandler)));
  }
}

void RealSKAdNetwork::updatePostbackConversionValue_iOS15_4(int fineValue, CompletionHandler completionHandler) {
  if (systemIsAtLeast("15.4")) {
    storeKit_->updatePostbackConversionValue(fineValue, callable(std::move(completionHandler)));
  }
}

void RealSKAdNetwork::updateConversionValue_iOS14_0(int fineValue) {
  if (systemIsAtLeast("14.0")) {
    storeKit_->updateConversionValue(fineValue);
  }
}

void RealSKAdNetwork::registerAppForAdNetworkAttribution() {
  storeKit_->registerAppForAdNetworkAttribution();
}

bool RealSKAdNetwork::systemIsAtLeast(std::string_view version) const {
  return isVersionAtLeast(device_->systemVersion(), version);
}

}  // namespace quillmar
