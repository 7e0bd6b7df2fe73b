#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Async/ActivityCounter.h"
#include "Async/Epoch.h"
#include "Async/HealthRecord.h"
#include "Conversion/DecisionTrace.h"
#include "Conversion/SKAdNetworkProtocol.h"
#include "quillmar/ConversionTrackingManagerProtocol.h"
#include "quillmar/QuillmarOptions.h"
#include "quillmar/platform/AdAttributionKit.h"
#include "quillmar/platform/Device.h"
#include "quillmar/platform/Executor.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Reports conversion values to the platform through the newest interface that the system has, and records what was
/// sent as the last window value.
///
/// Held by a shared pointer. The platform's answers refer to the manager weakly: one that is gone records nothing.
class ConversionTrackingManager final : public ConversionTrackingManagerProtocol,
                                        public std::enable_shared_from_this<ConversionTrackingManager> {
 public:
  static constexpr std::string_view adNetworkRegisteredKey = "QuillmarAdNetworkRegistered";

  /// An update counts in `activity` until the platform has answered, or has dropped the completion. `health` may be
  /// null.
  ConversionTrackingManager(std::shared_ptr<platform::UserDefaults> userDefaults,
                            std::shared_ptr<SKAdNetworkProtocol> skAdNetwork,
                            std::shared_ptr<platform::AdAttributionKit> adAttributionKit,
                            std::shared_ptr<platform::Device> device, std::shared_ptr<platform::Executor> mainExecutor,
                            std::shared_ptr<ActivityCounter> activity,
                            std::shared_ptr<HealthRecord> health = nullptr) noexcept;

  /// Sends a value, resolved before.
  void send(const ConversionValues::ConversionValue& conversionValue, Window window, bool forceLockWindow) override;
  /// The same with options, and for an event whose way is recorded: the interface and the platform's answer, too. When
  /// the term is over, the platform is not called, and nothing is saved.
  void send(const ConversionValues::ConversionValue& conversionValue, Window window, bool forceLockWindow,
            const QuillmarOptions& options, std::shared_ptr<DecisionTrace> trace, Epoch::Term term);

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
    std::shared_ptr<DecisionTrace> trace;  ///< may be null
    /// With both networks: set by the first that has taken the value. Null with one.
    std::shared_ptr<std::atomic<bool>> taken = nullptr;
    std::optional<Window> window = {};  ///< to be remembered with the value
    Epoch::Term term = {};

    std::int64_t fine() const noexcept { return windowValue.fineValue ? windowValue.fineValue->value : 0; }
    /// The fine value in the platform's type; the document may hold numbers far beyond.
    int platformFine() const noexcept;
    std::optional<CoarseValue> coarse() const noexcept;
  };
  class OpenCall;

  void startUpdate(Update update, const QuillmarOptions& options);
  void sendEventWithAttributionKit(const Update& update);
  void sendEventSKAdNetwork4(const Update& update);
  void sendEventSKAdNetwork3(const Update& update);
  void sendEventSKAdNetwork2(const Update& update);
  void registerForAttribution(const Update& update);
  void saveLastWindowValue(const Update& update, bool lockWindow);
  void save(const Update& update, bool lockWindow);
  /// Records which interface is called; gives a number for the answer.
  std::uint64_t called(const Update& update, const char* interface) const;

  /// What the log says about the end of an update.
  struct OutcomeLines {
    std::string_view failed;      ///< the platform's description follows
    std::string_view successful;  ///< empty: nothing is said
  };
  /// The completion of an update by that interface: records a success, and logs either end.
  platform::AdNetworkCompletion completion(Update update, const char* interface, bool lockWindow, OutcomeLines lines);

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<SKAdNetworkProtocol> skAdNetwork_;
  const std::shared_ptr<platform::AdAttributionKit> adAttributionKit_;
  const std::shared_ptr<platform::Device> device_;
  const std::shared_ptr<platform::Executor> mainExecutor_;
  const std::shared_ptr<ActivityCounter> activity_;
  const std::shared_ptr<HealthRecord> health_;
  std::mutex lastWindowValueQueue_;
};

}  // namespace quillmar
