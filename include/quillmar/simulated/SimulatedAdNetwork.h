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

namespace quillmar::simulated {

/// One call to the platform's ad attribution.
struct PlatformCall {
  /// "adAttributionKit", "skAdNetwork4", "skAdNetwork4WithoutCoarse", "skAdNetwork3", "skAdNetwork2" or
  /// "registration".
  std::string interface;
  // What the interface does not take is absent.
  std::optional<int> fineValue;
  std::optional<std::string> coarseValue;  ///< "high", "medium" or "low"
  std::optional<bool> lockWindow;
  platform::Clock::TimePoint at;
};

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

/// Stands in for StoreKit and AdAttributionKit: remembers each call and completes it at once, with success or with
/// the error that it was given.
class SimulatedAdNetwork : public platform::StoreKitAdNetwork, public platform::AdAttributionKit {
 public:
  /// Calls are stamped with the clock's time; the device's version tells which interface a call belongs to.
  SimulatedAdNetwork(std::shared_ptr<platform::Clock> clock, std::shared_ptr<platform::Device> device);

  void registerAppForAdNetworkAttribution() override;
  void updateConversionValue(int fineValue) override;
  void updatePostbackConversionValue(int fineValue, platform::AdNetworkCompletion completion) override;
  void updatePostbackConversionValue(int fineValue, platform::SKAdNetworkCoarseConversionValue coarseValue,
                                     bool lockWindow, platform::AdNetworkCompletion completion) override;
  void updateConversionValue(const platform::PostbackUpdate& update, platform::AdNetworkCompletion completion) override;

  /// Called with each call as it is made, on the thread that makes it.
  void setObserver(std::function<void(const PlatformCall&)> observer);

  /// Lets the following calls fail with this description; nothing lets them succeed again.
  void setError(std::optional<std::string> localizedDescription);

  /// Every call so far, in order. Any thread.
  std::vector<PlatformCall> calls() const;

 private:
  void record(PlatformCall call, const platform::AdNetworkCompletion& completion);

  mutable std::mutex mutex_;
  std::shared_ptr<platform::Clock> clock_;
  std::shared_ptr<platform::Device> device_;
  std::vector<PlatformCall> calls_;
  std::function<void(const PlatformCall&)> observer_;
  std::optional<std::string> error_;
};

}  // namespace quillmar::simulated
