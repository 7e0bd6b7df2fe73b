#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Async/ActivityCounter.h"
#include "Async/Task.h"
#include "Conversion/SKAdNetworkProtocol.h"
#include "Model/ConversionValues.h"
#include "quillmar/platform/AdAttributionKit.h"
#include "quillmar/platform/Device.h"
#include "quillmar/platform/Executor.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Reports conversion values to the platform through the newest interface that the system has, and records what was
/// sent as the last window value.
///
/// Held by a shared pointer. The platform's answers refer to the manager weakly: one that is gone records nothing.
class ConversionTrackingManager : public std::enable_shared_from_this<ConversionTrackingManager> {
 public:
  static constexpr std::string_view adNetworkRegisteredKey = "QuillmarAdNetworkRegistered";

  /// An update counts in `activity` until the platform has answered, or has dropped the completion.
  ConversionTrackingManager(std::shared_ptr<platform::UserDefaults> userDefaults,
                            std::shared_ptr<SKAdNetworkProtocol> skAdNetwork,
                            std::shared_ptr<platform::AdAttributionKit> adAttributionKit,
                            std::shared_ptr<platform::Device> device, std::shared_ptr<platform::Executor> mainExecutor,
                            std::shared_ptr<ActivityCounter> activity) noexcept;

  /// Sends a value, resolved before, for a window. The task ends when the update has been started on the main executor;
  /// the platform answers later.
  Task<void> send(ConversionValues::ConversionValue conversionValue, Window window, bool forceLockWindow);

  /// Stands in for the device's system version in the choice of the interface, as long as the device itself is new
  /// enough for it. For tests; holds for the process.
  static std::optional<std::string> simulatediOSVersion();
  static void setSimulatediOSVersion(std::optional<std::string> version);

 private:
  /// What is sent, and how it is called.
  struct Update {
    ConversionValues::WindowValue windowValue;
    std::string key;
    bool forceLockWindow = false;

    std::int64_t fine() const noexcept { return windowValue.fineValue ? windowValue.fineValue->value : 0; }
    /// The fine value in the platform's type; the document may hold numbers far beyond.
    int platformFine() const noexcept;
    std::optional<CoarseValue> coarse() const noexcept;
  };
  class OpenCall;

  static Task<void> sendTask(std::weak_ptr<ConversionTrackingManager> weakSelf,
                             ConversionValues::ConversionValue conversionValue, Window window, bool forceLockWindow);
  static Task<void> sendOnMain(std::weak_ptr<ConversionTrackingManager> weakSelf, Update update);
  static Task<void> sendEventWithAttributionKit(std::weak_ptr<ConversionTrackingManager> weakSelf, Update update,
                                                Activity activity);

  void startUpdate(const Update& update);
  void sendEventSKAdNetwork4(const Update& update);
  void sendEventSKAdNetwork3(const Update& update);
  void sendEventSKAdNetwork2(const Update& update);
  void registerForAttribution(const Update& update);
  void saveLastWindowValue(const Update& update, bool lockWindow);

  /// The completion of an ad network's update: records a success, and logs either end under the interface's name.
  SKAdNetworkProtocol::CompletionHandler completion(const Update& update, bool lockWindow, const char* interface);

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<SKAdNetworkProtocol> skAdNetwork_;
  const std::shared_ptr<platform::AdAttributionKit> adAttributionKit_;
  const std::shared_ptr<platform::Device> device_;
  const std::shared_ptr<platform::Executor> mainExecutor_;
  const std::shared_ptr<ActivityCounter> activity_;
  std::mutex lastWindowValueQueue_;
};

}  // namespace quillmar
