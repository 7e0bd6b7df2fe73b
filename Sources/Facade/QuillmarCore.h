#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Async/ActivityCounter.h"
#include "Async/SerialExecutor.h"
#include "Async/Task.h"
#include "Async/TaskQueue.h"
#include "Conversion/ConversionTrackingManager.h"
#include "Conversion/ConversionValueResolver.h"
#include "Conversion/EventTracker.h"
#include "Facade/SharedState.h"
#include "Facade/TrackingQueue.h"
#include "Model/ConversionValues.h"
#include "Network/NetworkManagerProtocol.h"
#include "Persistence/ConversionValuesRepositoryProtocol.h"
#include "Persistence/EventServerLogRepositoryProtocol.h"
#include "Settings/VerificationKeyRepositoryProtocol.h"
#include "quillmar/Quillmar.h"

namespace quillmar {

/// What stands behind `Quillmar`: its state and the chapters of its life, each in a file of its own.
///
/// The flags are atomics without further order, read and written from the caller's thread and from tasks: a fetch
/// that is started twice does no harm. Work that outlives a call holds the core weakly, locks it again after each
/// suspension, and does nothing once it is gone. Functions may throw when memory runs out; `Quillmar` catches.
class QuillmarCore : public std::enable_shared_from_this<QuillmarCore> {
 public:
  /// Builds the event tracker, the resolver and the tracking manager. Does no I/O and logs nothing.
  QuillmarCore(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
               const platform::Platform& platform);

  // Start-up (StartUp.cpp).
  void configure(std::string verificationKey);

  // Refresh (Refresh.cpp).
  void applicationDidBecomeActive();
  void sceneDidActivate();
  /// Starts a fetch of the conversion values if one is due.
  void fetchAndSaveConversionValues();
  bool shouldRefreshConversionValues() const;
  static Task<void> fetchWithRetry(std::weak_ptr<QuillmarCore> weak, int maxAttempts, double delaySeconds,
                                   Activity activity);

  // Intake (Intake.cpp).
  void sendEvent(std::string event, std::optional<EventParameters> params);
  bool isConfigurationReady() const;
  void processPendingEvents();
  std::size_t pendingEventCount() const;

  // Pipeline (Pipeline.cpp).
  /// The postback window that the first run puts today into; nothing when the event window has expired.
  std::optional<Window> getCurrentWindow() const;
  /// Everything that happens to an accepted event. Its parameters are `testProcessEvent`'s too: it bypasses intake.
  static Task<void> processEvent(std::weak_ptr<QuillmarCore> weak, std::string name,
                                 std::optional<NamedParameters> params);
  static Task<void> checkLockWindowHours(std::weak_ptr<QuillmarCore> weak);

  // Reset (Reset.cpp).
  void reset();
  void clearTrackedEvents();
  // For tests of hosts' and our own.
  void resetConfigurationState();
  void markConfigurationAsLoaded();
  static void resetVerificationKeyState();

  // State.
  LogLevel logLevel() const noexcept { return logLevel_.load(std::memory_order_relaxed); }
  void setLogLevel(LogLevel level) noexcept { logLevel_.store(level, std::memory_order_relaxed); }
  std::string quillmarVerificationKey() const;
  bool isInitialized() const noexcept { return isInitialized_.load(std::memory_order_relaxed); }
  bool hasFetchedConversionValues() const noexcept {
    return hasFetchedConversionValues_.load(std::memory_order_relaxed);
  }
  void setHasFetchedConversionValues(bool fetched) noexcept {
    hasFetchedConversionValues_.store(fetched, std::memory_order_relaxed);
  }
  QuillmarStatistics statistics() const;
  QuillmarState state() const;
  bool drain(std::chrono::milliseconds timeout) { return activity_->waitUntilIdle(timeout); }

  std::shared_ptr<ConversionValuesRepositoryProtocol> conversionValuesRepository() const;
  void setConversionValuesRepository(std::shared_ptr<ConversionValuesRepositoryProtocol> repository);
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository() const;
  void setVerificationKeyRepository(std::shared_ptr<VerificationKeyRepositoryProtocol> repository);
  std::shared_ptr<EventServerLogRepositoryProtocol> eventServerLogRepository() const;
  void setEventServerLogRepository(std::shared_ptr<EventServerLogRepositoryProtocol> repository);
  std::shared_ptr<ConversionTrackingManager> conversionTrackingManager() const;
  void setConversionTrackingManager(std::shared_ptr<ConversionTrackingManager> manager);

  const std::shared_ptr<EventTracker>& eventTracker() const noexcept { return eventTracker_; }

 private:
  struct PendingEvent {
    std::string name;
    std::optional<NamedParameters> params;
  };

  // Start-up.
  void configureInBackground(const std::string& verificationKey);
  void configureSynchronously(const std::string& verificationKey);
  /// The whole days since the first run. Records the first run, and gives nothing, when there was none.
  std::optional<std::int64_t> daysSinceFirstRun();
  void recordFirstRun();
  void buildRepositories(const std::string& verificationKey);
  void registerForActivation();
  std::shared_ptr<NetworkManagerProtocol> makeNetworkManager() const;

  // Refresh.
  class FetchGuard;
  void handleAppBecomeActive();
  void saveLastFetchTimestamp();
  void giveUpFetching(int maxAttempts, const std::string& lastError);

  // Intake.
  static Task<void> acceptEvent(std::weak_ptr<QuillmarCore> weak, std::string event,
                                std::optional<EventParameters> params);
  static Task<void> replayEvent(std::weak_ptr<QuillmarCore> weak, PendingEvent event);
  void deferEvent(std::string name, std::optional<NamedParameters> params);
  void emptyPendingEvents();

  // Pipeline.
  static Task<bool> logToService(std::weak_ptr<QuillmarCore> weak, std::string name);
  std::shared_ptr<const ConversionValues> configurationFor(const std::string& name);
  void invalidateVerificationKey(std::int64_t failures);
  static Task<void> update(std::weak_ptr<QuillmarCore> weak, ConversionValues::ConversionValue value, Window window,
                           bool forceLockWindow);

  /// Posts `work` so that it does nothing once the core is gone, and counts as in flight until it has run.
  void postWeakly(platform::Executor& executor, std::function<void(QuillmarCore&)> work);
  std::string_view serviceUrl() const;
  void print(std::string_view line) const;

  const platform::Platform platform_;
  const std::shared_ptr<ActivityCounter> activity_;
  /// Runs the pipeline, and calls the ad networks when the platform has no executor for that.
  const std::shared_ptr<SerialExecutor> eventExecutor_;

  std::atomic<LogLevel> logLevel_{LogLevel::off};
  std::string quillmarVerificationKey_;  // guarded by collaboratorsMutex_
  std::atomic<bool> isInitialized_{false};
  std::atomic<bool> isRetriying_{false};  // spelled so on purpose
  std::atomic<bool> isFetching_{false};
  std::atomic<bool> isConfigLoaded_{false};
  const std::shared_ptr<SerialExecutor> pendingEventsQueue_;
  std::deque<PendingEvent> pendingEvents_;  // touched on pendingEventsQueue_ only
  std::atomic<std::size_t> pendingEventCount_{0};
  std::atomic<bool> hasFetchedConversionValues_{false};

  mutable std::mutex collaboratorsMutex_;
  std::shared_ptr<ConversionValuesRepositoryProtocol> conversionValuesRepository_;
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository_;
  std::shared_ptr<EventServerLogRepositoryProtocol> eventServerLogRepository_;
  std::shared_ptr<ConversionTrackingManager> conversionTrackingManager_;
  std::vector<platform::NotificationCenter::ObserverId> observers_;

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const platform::Bundle bundle_;
  const std::shared_ptr<EventTracker> eventTracker_;
  const std::shared_ptr<TrackingQueue> trackingQueue_;
  const std::shared_ptr<ConversionValueResolver> conversionValueResolver_;
  const std::shared_ptr<TaskQueue> eventProcessingQueue_;

  struct Counters {
    std::atomic<std::uint64_t> sent{0};
    std::atomic<std::uint64_t> dropped{0};
    std::atomic<std::uint64_t> logged{0};
    std::atomic<std::uint64_t> failed{0};
  } counters_;
};

}  // namespace quillmar
