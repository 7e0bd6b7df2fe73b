#pragma once

#include <memory>
#include <string_view>

#include "Conversion/SKAdNetworkProtocol.h"
#include "quillmar/platform/Device.h"

namespace quillmar {

/// Hands the operations on to StoreKit. An operation that the running system is too old for does nothing, and its
/// completion handler is never called.
class RealSKAdNetwork final : public SKAdNetworkProtocol {
 public:
  RealSKAdNetwork(std::shared_ptr<platform::StoreKitAdNetwork> storeKit,
                  std::shared_ptr<platform::Device> device) noexcept;

  void updatePostbackConversionValue_iOS16_1_WithCoarse(int fineValue, std::any coarseValue, bool lockWindow,
                                                        CompletionHandler completionHandler) override;
  /// The lock request is not passed on: the platform's call without a coarse value does not take one.
  void updatePostbackConversionValue_iOS16_1_WithoutCoarse(int fineValue, bool lockWindow,
                                                           CompletionHandler completionHandler) override;
  void updatePostbackConversionValue_iOS15_4(int fineValue, CompletionHandler completionHandler) override;
  void updateConversionValue_iOS14_0(int fineValue) override;
  void registerAppForAdNetworkAttribution() override;

 private:
  bool systemIsAtLeast(std::string_view version) const;

  const std::shared_ptr<platform::StoreKitAdNetwork> storeKit_;
  const std::shared_ptr<platform::Device> device_;
};

}  // namespace quillmar
