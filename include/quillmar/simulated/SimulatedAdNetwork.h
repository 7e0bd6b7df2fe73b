#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "quillmar/platform/AdAttributionKit.h"
#include "quillmar/platform/Clock.h"
#include "quillmar/platform/Device.h"
#include "quillmar/platform/StoreKitAdNetwork.h"
#include "quillmar/simulated/PostbackRules.h"

namespace quillmar::simulated {

/// A device with a system version that can be chosen.
class SimulatedDevice : public platform::Device {
 public:
  /// `systemVersion` in the form "17.4.1".
  explicit SimulatedDevice(std::string systemVersion);
  std::string systemVersion() const override;
  /// What `systemVersion` gives from now on. Any thread.
  void setSystemVersion(std::string systemVersion);

 private:
  mutable std::mutex mutex_;
  std::string systemVersion_;
};

/// Stands in for StoreKit and AdAttributionKit: remembers each call, judges it by the platform's rules, and completes
/// it at once. A call that the rules refuse is answered with an error, as the platform does; others succeed, with
/// effect or without, unless the ad network was told to fail.
class SimulatedAdNetwork : public platform::StoreKitAdNetwork, public platform::AdAttributionKit {
 public:
  /// Calls are stamped with the clock's time; the device's version tells which interface a call belongs to. The first
  /// launch is now, and the ad one that the library's calls count for on this device.
  SimulatedAdNetwork(std::shared_ptr<platform::Clock> clock, std::shared_ptr<platform::Device> device);

  void registerAppForAdNetworkAttribution() override;
  void updateConversionValue(int fineValue) override;
  void updatePostbackConversionValue(int fineValue, platform::AdNetworkCompletion completion) override;
  void updatePostbackConversionValue(int fineValue, platform::SKAdNetworkCoarseConversionValue coarseValue,
                                     bool lockWindow, platform::AdNetworkCompletion completion) override;
  void updateConversionValue(const platform::PostbackUpdate& update, platform::AdNetworkCompletion completion) override;

  /// Judges by other rules from now on: another ad, another first launch, windows of another length.
  void setRules(PostbackRules rules);

  /// The rules with all calls so far, for the postbacks. Any thread.
  PostbackRules rules() const;

  /// Called with each call as it is made, on the thread that makes it.
  void setObserver(std::function<void(const PlatformCall&)> observer);

  /// Lets the following calls fail with this description; nothing lets them succeed again.
  void setError(std::optional<std::string> localizedDescription);

  /// Every call so far, in order, with its verdict. Any thread.
  std::vector<PlatformCall> calls() const;

 private:
  void record(PlatformCall call, const platform::AdNetworkCompletion& completion);

  mutable std::mutex mutex_;
  std::shared_ptr<platform::Clock> clock_;
  std::shared_ptr<platform::Device> device_;
  PostbackRules rules_;
  std::vector<PlatformCall> calls_;
  std::function<void(const PlatformCall&)> observer_;
  std::optional<std::string> error_;
};

}  // namespace quillmar::simulated
