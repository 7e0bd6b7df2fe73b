#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Async/ActivityCounter.h"
#include "Async/Epoch.h"
#include "Async/HealthRecord.h"
#include "Async/SerialExecutor.h"
#include "Async/Task.h"
#include "Async/TaskQueue.h"
#include "Conversion/ConversionValueResolver.h"
#include "Conversion/DecisionTrace.h"
#include "Conversion/EventTracker.h"
#include "Delivery/Outbox.h"
#include "Facade/Erasure.h"
#include "Facade/SharedState.h"
#include "Facade/TrackingQueue.h"
#include "Network/NetworkGate.h"
#include "Settings/Consent.h"
#include "quillmar/Quillmar.h"

namespace quillmar {

/// What stands behind `Quillmar`: its state and the chapters of its life, each in a file of its own.
///
/// Start-up, activations and fetches run in their order on one serial queue, events on another. Work that outlives a
/// call holds a `Life`, locks it again after each suspension, and ends once the core is gone or was reset. Functions
/// may throw when memory runs out; `Quillmar` catches.
class QuillmarCore : public Consent::Worker, public std::enable_shared_from_this<QuillmarCore> {
 public:
  /// The core as work refers to it that outlives a call: weakly, and in the epoch that the work began in.
  struct Life {
    std::weak_ptr<QuillmarCore> core;
    std::uint64_t epoch = 0;

    /// Null when the core is gone, or a reset has come.
    std::shared_ptr<QuillmarCore> lock() const;
  };

  /// What the host reported, as it goes on.
  struct NamedEvent {
    std::string name;
    /// Null: none were given. As the host made them: to name them is left to the library's threads.
    std::shared_ptr<EventParameters> params;
    HealthRecord::Passage passage;

    /// Under their names, with texts in well-formed UTF-8.
    std::optional<NamedParameters> namedParams() const;
    std::optional<NamedParameters> takeNamedParams();
  };

  /// Builds the event tracker, the resolver and the tracking manager, and directs the log to the platform's sink. Does
  /// no I/O and logs nothing. Throws `std::invalid_argument` for a store or a member of the platform that is missing.
  QuillmarCore(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
               const platform::Platform& platform);
  ~QuillmarCore() override;
  QuillmarCore(const QuillmarCore&) = delete;
  QuillmarCore& operator=(const QuillmarCore&) = delete;

  /// What stands behind a facade.
  static QuillmarCore& of(Quillmar& facade) noexcept { return *facade.core_; }

  Life thisLife() { return {weak_from_this(), epoch_->current()}; }

  void setOptions(const QuillmarOptions& options);
  QuillmarOptions options() const;

  // Consent (Permission.cpp).
  void grantConsent();
  void revokeConsent();
  void stop() override;
  bool mayWork() const noexcept { return consent_->mayWork(); }
  void joinConsent() { consent_->join(weak_from_this()); }

  // Start-up (StartUp.cpp).
  void configure(std::string verificationKey);

  // Refresh (Refresh.cpp).
  void applicationDidBecomeActive();
  void sceneDidActivate();
  /// Starts a fetch of the conversion values if one is due.
  void fetchAndSaveConversionValues(const Life& life);
  bool shouldRefreshConversionValues() const;
  /// `activity` counts what `drain` waits for, `fetching` the whole fetch with its waits.
  static Task<void> fetchWithRetry(Life life, int maxAttempts, double delaySeconds, Activity activity,
                                   Activity fetching);

  // Intake (Intake.cpp).
  void sendEvent(std::string event, std::optional<EventParameters> params);
  bool isConfigurationReady() const;
  void processPendingEvents(const Life& life);
  std::size_t pendingEventCount() const;

  // Pipeline (Pipeline.cpp).
  /// The postback window that the first run puts today into; nothing when the event window has expired.
  std::optional<Window> getCurrentWindow() const;
  /// When a window begins that is the current one, or was.
  platform::Clock::TimePoint beginOf(Window window, platform::Clock::TimePoint firstRun) const;
  /// Everything that happens to an accepted event. For `testProcessEvent`, too: it bypasses intake.
  static Task<void> processEvent(Life life, NamedEvent event);
  static Task<void> checkLockWindowHours(Life life);

  // Reset (Reset.cpp).
  void reset();
  void resetNow();
  void forget();
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
  bool hasFetchedConversionValues() const;
  void setHasFetchedConversionValues(bool fetched) noexcept {
    hasFetchedConversionValues_.store(fetched, std::memory_order_relaxed);
  }
  QuillmarStatistics statistics() const;
  QuillmarState state() const;
  QuillmarHealth health() const;
  void setNetworkPaused(bool paused) { gate_->setClosed(paused); }
  bool drain(std::chrono::milliseconds timeout);
  bool waitUntilDelivered(std::chrono::milliseconds timeout);

  std::shared_ptr<ConversionValuesRepositoryProtocol> conversionValuesRepository() const;
  void setConversionValuesRepository(std::shared_ptr<ConversionValuesRepositoryProtocol> repository);
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository() const;
  void setVerificationKeyRepository(std::shared_ptr<VerificationKeyRepositoryProtocol> repository);
  std::shared_ptr<EventServerLogRepositoryProtocol> eventServerLogRepository() const;
  void setEventServerLogRepository(std::shared_ptr<EventServerLogRepositoryProtocol> repository);
  std::shared_ptr<ConversionTrackingManagerProtocol> conversionTrackingManager() const;
  void setConversionTrackingManager(std::shared_ptr<ConversionTrackingManagerProtocol> manager);

  void setDecisionObserver(DecisionObserver observer);
  void setHealthObserver(QuillmarHealthObserver observer);

  const std::shared_ptr<EventTracker>& eventTracker() const noexcept { return eventTracker_; }

 private:
  friend class KeptEvents;

  bool deliversReliably() const { return reliableDelivery_.load(std::memory_order_acquire) && outbox_->isMine(); }

  struct Configuration {
    std::string verificationKey;
    std::uint64_t epoch;
  };
  /// A fetch is under way for as long as its task keeps this: a task that is dropped half-way lets go of it.
  struct Fetch {};

  // Consent. False: there is consent by now.
  bool holdConfiguration(const Configuration& configuration);
  /// Or drops it.
  bool holdEvent(std::uint64_t epoch, NamedEvent& event);

  // Start-up.
  void beginConfiguring(Configuration configuration);
  void configureNext();
  std::optional<Configuration> takeConfiguration();
  void configureSynchronously(const std::string& verificationKey, std::uint64_t epoch);
  bool prepareInBackground(const std::string& verificationKey);
  bool prepareSynchronously(const std::string& verificationKey);
  void finishConfiguring(const std::string& verificationKey, std::uint64_t epoch);
  /// The whole days since the first run. Records the first run, and gives nothing, when there was none.
  std::optional<std::int64_t> daysSinceFirstRun();
  void recordFirstRun();
  void forgetOldEvents();
  void buildRepositories(const std::string& verificationKey);
  void registerForActivation(std::uint64_t epoch);

  // Refresh.
  void handleAppBecomeActive(const Life& life);
  void useStoredConfiguration(const Life& life);
  std::shared_ptr<Fetch> beginFetch();
  bool isFetching() const;
  void markFetched();
  void saveLastFetchTimestamp();
  /// The last good one; nothing before the first.
  std::optional<double> secondsSinceFetch() const;
  void giveUpFetching(int maxAttempts, const std::string& lastError);

  // Intake.
  using Trace = std::shared_ptr<DecisionTrace>;
  /// An event that waits for its turn.
  struct Start {
    Life life;
    NamedEvent event;
    Task<void> (*begin)(Life, NamedEvent);

    Task<void> operator()() { return begin(std::move(life), std::move(event)); }
  };
  // glibc keeps freed blocks of up to 120 bytes apart without a lock, and takes an arena's lock for larger ones. These
  // are allocated by the host's threads and freed by the library's.
  static_assert(sizeof(Start) <= 120);

  void post(Start start, const QuillmarLimits& limits);
  /// Ends an event for a limit.
  void refuse(HealthRecord::Passage& passage, EventEnd how, std::size_t limit);
  /// False when the service has switched the library off; the log has either. `params` is called for the log only.
  bool isAccepted(const std::string& name, const std::function<std::optional<NamedParameters>()>& params);
  bool isAccepted(const NamedEvent& event);
  /// With `strictSwitch`: the service has switched the library off, and what is on its way stops.
  bool isSwitchedOff() const;
  /// Ends an event for the switch.
  void skip(const std::string& name, const Trace& trace) const;
  /// The same for one that the service has not been told of.
  void drop(const std::string& name, const Trace& trace);
  /// The road of an event that has passed the door; `isAccepted`: its switch has been looked at.
  void enter(const Life& life, NamedEvent event, bool isAccepted, const QuillmarLimits& limits);
  void wakeOutbox();
  static Task<void> acceptEvent(Life life, NamedEvent event);
  static Task<void> replayEvent(Life life, NamedEvent event);
  void deferEvent(const Life& life, NamedEvent event);
  void park(NamedEvent event);
  void emptyPendingEvents();

  // Pipeline.
  /// The record of an event that begins its way; null when nobody observes.
  Trace traceOf(const std::string& event) const;
  static Task<bool> logToService(Life life, std::string name, HealthRecord::Passage passage, Trace trace);
  void noteFailure(const EventLogResult& result);
  /// What the history and the configuration say now.
  struct Chosen {
    ConversionValues::ConversionValue value;
    bool forceLockWindow = false;
  };
  EventTracker::Matching matchingIn(Window window) const;
  std::optional<Chosen> choose(const std::string& name, const std::shared_ptr<const ConversionValues>& configuration,
                               Window window, const Trace& trace) const;
  /// The configuration of the last good fetch; null when there is none that can be read.
  std::shared_ptr<const ConversionValues> storedConfiguration() const;
  std::shared_ptr<const ConversionValues> configurationFor(const Life& life, const std::string& name);
  void invalidateVerificationKey(std::int64_t failures);
  static Task<void> decideAboutKept(Life life, std::string name, std::shared_ptr<const ConversionValues> configuration,
                                    Window window);
  static Task<void> deliver(Life life, OutboxRecord record, OutboxUserProtocol::Done done, Activity activity);
  static Task<void> update(Life life, ConversionValues::ConversionValue value, Window window, bool forceLockWindow,
                           Trace trace);

  /// Posts `work` so that it does nothing once the life has ended, and counts as in flight until it has run.
  void postInLife(platform::Executor& executor, const Life& life, std::function<void(QuillmarCore&)> work);
  void print(std::string_view text) const;

  const platform::Platform platform_;
  const std::shared_ptr<ActivityCounter> activity_;
  const std::shared_ptr<ActivityCounter> fetches_;
  const std::shared_ptr<Epoch> epoch_;
  const std::shared_ptr<SerialExecutor> lifecycleQueue_;  ///< start-up, activations, fetches
  const std::shared_ptr<SerialExecutor> eventExecutor_;   ///< the pipeline
  const std::shared_ptr<HealthRecord> health_;
  const std::shared_ptr<platform::Executor> mainExecutor_;
  const std::shared_ptr<NetworkGate> gate_;

  std::atomic<LogLevel> logLevel_{LogLevel::off};
  std::string quillmarVerificationKey_;  // guarded by collaboratorsMutex_
  std::atomic<bool> isInitialized_{false};
  std::atomic<bool> isConfigLoaded_{false};
  const std::shared_ptr<SerialExecutor> pendingEventsQueue_;
  std::deque<NamedEvent> pendingEvents_;  // touched on pendingEventsQueue_ only
  std::atomic<std::size_t> pendingEventCount_{0};
  std::atomic<bool> hasFetchedConversionValues_{false};

  std::atomic<bool> isObserved_{false};  ///< spares events the mutex
  std::atomic<bool> isLimited_{false};   ///< likewise

  mutable std::mutex collaboratorsMutex_;
  QuillmarOptions options_;
  std::map<EventEnd, platform::Clock::TimePoint> saidAt_;  ///< what `refuse` has logged
  std::shared_ptr<const DecisionObserver> decisionObserver_;
  std::shared_ptr<ConversionValuesRepositoryProtocol> conversionValuesRepository_;
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository_;
  std::shared_ptr<EventServerLogRepositoryProtocol> eventServerLogRepository_;
  std::shared_ptr<ConversionTrackingManagerProtocol> conversionTrackingManager_;
  std::deque<Configuration> configurations_;  ///< calls of `configure` that wait for their turn
  std::weak_ptr<Fetch> isFetching_;
  bool isRetriying_ = false;  ///< the known spelling; set without `isFetching_` only after a fetch without any attempt
  std::vector<platform::NotificationCenter::ObserverId> observers_;

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const platform::Bundle bundle_;
  const std::shared_ptr<EventTracker> eventTracker_;
  const std::shared_ptr<TrackingQueue> trackingQueue_;
  const std::shared_ptr<ConversionValueResolver> conversionValueResolver_;
  const std::shared_ptr<TaskQueue> eventProcessingQueue_;
  const std::shared_ptr<Outbox> outbox_;
  const std::shared_ptr<Consent> consent_;
  const Erasure erasure_;
  std::atomic<bool> reliableDelivery_{false};  ///< set when the outbox has been started, which it publishes

  struct Counters {
    std::atomic<std::uint64_t> dropped{0};
    std::atomic<std::uint64_t> logged{0};
    std::atomic<std::uint64_t> failed{0};
  } counters_;
};

}  // namespace quillmar
