#include "Facade/QuillmarCore.h"

#include <cstdio>
#include <utility>

#include "Conversion/ConversionTrackingManager.h"
#include "Conversion/RealSKAdNetwork.h"
#include "Facade/KeptEvents.h"
#include "Logging/Controls.h"
#include "Logging/Guarded.h"
#include "Logging/Log.h"
#include "Platform/CompletePlatform.h"
#include "Settings/EnabledFlag.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

/// How many events are on their way through the pipeline at a time; the others wait as names and parameters.
constexpr std::size_t eventsInFlight = 64;

}  // namespace

QuillmarCore::QuillmarCore(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
                           const platform::Platform& platform)
    : platform_(platform::completePlatform(platform, userDefaults)),
      activity_(std::make_shared<ActivityCounter>()),
      fetches_(std::make_shared<ActivityCounter>()),
      epoch_(std::make_shared<Epoch>()),
      lifecycleQueue_(std::make_shared<SerialExecutor>(platform.executor, "com.quillmar.lifecycle")),
      eventExecutor_(std::make_shared<SerialExecutor>(platform.executor, "com.quillmar.eventProcessing")),
      health_(std::make_shared<HealthRecord>(epoch_, platform.clock, eventExecutor_)),
      mainExecutor_(platform.mainExecutor ? platform.mainExecutor : eventExecutor_),
      gate_(std::make_shared<NetworkGate>(platform.http, eventExecutor_)),
      pendingEventsQueue_(std::make_shared<SerialExecutor>(platform.executor, "com.quillmar.pendingEvents")),
      conversionTrackingManager_(std::make_shared<ConversionTrackingManager>(
          userDefaults, std::make_shared<RealSKAdNetwork>(platform.storeKitAdNetwork, platform.device),
          platform.adAttributionKit, platform.device, mainExecutor_, activity_, health_)),
      userDefaults_(std::move(userDefaults)),
      bundle_(std::move(bundle)),
      eventTracker_(std::make_shared<EventTracker>(userDefaults_, platform.clock)),
      trackingQueue_(std::make_shared<TrackingQueue>(eventTracker_, eventExecutor_, epoch_)),
      conversionValueResolver_(std::make_shared<ConversionValueResolver>(userDefaults_)),
      eventProcessingQueue_(std::make_shared<TaskQueue>(eventExecutor_, eventsInFlight, activity_)),
      outbox_(std::make_shared<Outbox>(
          Outbox::Surroundings{userDefaults_, platform.clock, eventExecutor_, epoch_, activity_, fetches_, health_},
          OutboxStore::eventsKey)),
      consent_(Consent::of(userDefaults_)),
      erasure_(platform_, userDefaults_) {
  Log::setSink(platform_.logSink, platform_.clock);
}

QuillmarCore::~QuillmarCore() {
  gate_->abandon();
  for (const auto observer : observers_) {
    platform_.notifications->removeObserver(observer);
  }
}

std::shared_ptr<QuillmarCore> QuillmarCore::Life::lock() const {
  auto locked = core.lock();
  return locked && locked->epoch_->current() == epoch ? std::move(locked) : nullptr;
}

void QuillmarCore::setOptions(const QuillmarOptions& options) {
  const std::lock_guard lock(collaboratorsMutex_);
  if (options.reliableDelivery && !outbox_->isStarted()) {
    outbox_->start(std::make_unique<KeptEvents>(weak_from_this()));
  }
  reliableDelivery_.store(options.reliableDelivery, std::memory_order_release);
  isLimited_.store(options.limits.queuedEvents > 0 || options.limits.eventBytes > 0, std::memory_order_relaxed);
  options_ = options;
  if (options.requireConsent) {
    consent_->require();
  }
}

QuillmarOptions QuillmarCore::options() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return options_;
}

std::string QuillmarCore::quillmarVerificationKey() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return quillmarVerificationKey_;
}

QuillmarStatistics QuillmarCore::statistics() const {
  const Outbox::Counts& outbox = outbox_->counts();
  const std::uint64_t parked = pendingEventCount() + consent_->heldEvents();
  return {health_->sent(),         counters_.dropped.load(), parked,
          counters_.logged.load(), counters_.failed.load(),  outbox.kept.load(),
          outbox_->unsent(),       outbox.refused.load(),    outbox.expired.load(),
          outbox.displaced.load()};
}

QuillmarState QuillmarCore::state() const {
  QuillmarState state;
  state.verificationKeyValid = !SharedState::instance().getVerificationKeyInvalid();
  if (!mayWork()) {
    return state;
  }
  if (const std::optional<Window> window = getCurrentWindow()) {
    state.window = static_cast<int>(*window);
  }
  state.appId = userDefaults_->string(Config::serverAppId);
  state.enabled = isSDKEnabled(*userDefaults_);
  state.kept = outbox_->unsent();
  return state;
}

QuillmarHealth QuillmarCore::health() const {
  QuillmarHealth health = health_->health(pendingEventCount() + consent_->heldEvents());
  if (const std::optional<double> elapsed = mayWork() ? secondsSinceFetch() : std::nullopt) {
    health.configurationAge = std::chrono::seconds(static_cast<std::int64_t>(*elapsed));
  }
  health.verificationKeyValid = !SharedState::instance().getVerificationKeyInvalid();
  health.failuresInARow = SharedState::instance().getConsecutiveAPIFailures();
  health.unsent = outbox_->unsent();
  return health;
}

std::shared_ptr<ConversionValuesRepositoryProtocol> QuillmarCore::conversionValuesRepository() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return conversionValuesRepository_;
}

void QuillmarCore::setConversionValuesRepository(std::shared_ptr<ConversionValuesRepositoryProtocol> repository) {
  const std::lock_guard lock(collaboratorsMutex_);
  conversionValuesRepository_.swap(repository);
}

std::shared_ptr<VerificationKeyRepositoryProtocol> QuillmarCore::verificationKeyRepository() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return verificationKeyRepository_;
}

void QuillmarCore::setVerificationKeyRepository(std::shared_ptr<VerificationKeyRepositoryProtocol> repository) {
  const std::lock_guard lock(collaboratorsMutex_);
  verificationKeyRepository_.swap(repository);
}

std::shared_ptr<EventServerLogRepositoryProtocol> QuillmarCore::eventServerLogRepository() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return eventServerLogRepository_;
}

void QuillmarCore::setEventServerLogRepository(std::shared_ptr<EventServerLogRepositoryProtocol> repository) {
  const std::lock_guard lock(collaboratorsMutex_);
  eventServerLogRepository_.swap(repository);
}

std::shared_ptr<ConversionTrackingManagerProtocol> QuillmarCore::conversionTrackingManager() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return conversionTrackingManager_;
}

void QuillmarCore::setConversionTrackingManager(std::shared_ptr<ConversionTrackingManagerProtocol> manager) {
  const std::lock_guard lock(collaboratorsMutex_);
  conversionTrackingManager_.swap(manager);
}

void QuillmarCore::setDecisionObserver(DecisionObserver observer) {
  auto shared = observer ? std::make_shared<const DecisionObserver>(std::move(observer)) : nullptr;
  const std::lock_guard lock(collaboratorsMutex_);
  isObserved_.store(shared != nullptr, std::memory_order_relaxed);
  decisionObserver_.swap(shared);
}

void QuillmarCore::setHealthObserver(QuillmarHealthObserver observer) {
  if (!observer) {
    health_->observe(nullptr);
    return;
  }
  health_->observe([weak = weak_from_this(), observer = std::move(observer)] {
    guarded("The health observer", [&] {
      if (const auto self = weak.lock()) {
        observer(self->health());
      }
    });
  });
}

QuillmarCore::Trace QuillmarCore::traceOf(const std::string& event) const {
  if (!isObserved_.load(std::memory_order_relaxed)) {
    return nullptr;
  }
  std::shared_ptr<const DecisionObserver> observer;
  {
    const std::lock_guard lock(collaboratorsMutex_);
    observer = decisionObserver_;
  }
  return observer ? std::make_shared<DecisionTrace>(event, std::move(observer), eventExecutor_, Activity(activity_))
                  : nullptr;
}

void QuillmarCore::wakeOutbox() {
  if (deliversReliably()) {
    outbox_->wake();
  }
}

bool QuillmarCore::drain(std::chrono::milliseconds timeout) {
  gate_->warnWhileClosed();
  return activity_->waitUntilIdle(deadlineAfter(timeout));
}

bool QuillmarCore::waitUntilDelivered(std::chrono::milliseconds timeout) {
  gate_->warnWhileClosed();
  const auto deadline = deadlineAfter(timeout);
  // Each begins what the other then waits for: a fetch replays events, an event may start a fetch.
  while (fetches_->waitUntilIdle(deadline) && activity_->waitUntilIdle(deadline)) {
    if (fetches_->count() == 0) {
      const QuillmarStatistics now = statistics();
      return deliversReliably() ? now.parked + now.unsent + now.dropped + now.refused + now.expired + now.displaced == 0
                                : now.logged == now.sent;
    }
  }
  return false;
}

void QuillmarCore::postInLife(platform::Executor& executor, const Life& life, std::function<void(QuillmarCore&)> work) {
  auto inFlight = std::make_shared<Activity>(activity_);
  executor.post([life, inFlight = std::move(inFlight), work = std::move(work)] {
    if (const auto self = life.lock()) {
      work(*self);
    }
  });
}

void QuillmarCore::print(std::string_view text) const {
  const std::string line = withoutControls(text);
  if (platform_.standardOutput) {
    platform_.standardOutput(line);
  } else {
    std::printf("%.*s\n", static_cast<int>(line.size()), line.data());
  }
}

}  // namespace quillmar
