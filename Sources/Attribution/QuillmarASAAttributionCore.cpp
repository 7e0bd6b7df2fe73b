#include "Attribution/QuillmarASAAttributionCore.h"

#include <stdexcept>
#include <utility>
#include <variant>

#include "Attribution/AttributionRetries.h"
#include "Attribution/KeptPurchases.h"
#include "Attribution/PurchaseInterceptor.h"
#include "Attribution/PurchaseProcessor.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Guarded.h"
#include "Logging/Log.h"
#include "Network/AppleSearchAdsApiClient.h"
#include "Network/EventsApiClient.h"
#include "Network/NetworkManager.h"
#include "Network/UserAgent.h"
#include "Persistence/ASAAttributionTrackingRepository.h"
#include "Persistence/ASADataPersistence.h"
#include "Persistence/EventsRepository.h"
#include "Platform/CompletePlatform.h"
#include "Settings/EnabledFlag.h"
#include "Settings/QuillMarDefaults.h"
#include "Settings/VerificationKeyRepository.h"
#include "quillmar/Config.h"
#include "quillmar/platform/URLError.h"

// Progress is deliberately logged at the error level, so that it shows whenever the log is on.

namespace quillmar {

namespace {

Task<platform::AttributionTokenResult> requestToken(std::shared_ptr<platform::AttributionTokenProvider> provider) {
  std::function<void(platform::AttributionTokenProvider::Completion)> start =
      [provider = std::move(provider)](platform::AttributionTokenProvider::Completion done) {
        provider->requestToken(std::move(done));
      };
  co_return co_await awaitCallback<platform::AttributionTokenResult>(std::move(start));
}

}  // namespace

QuillmarASAAttributionCore::QuillmarASAAttributionCore(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                       platform::Bundle bundle, const platform::Platform& platform)
    : platform_(platform::completePlatform(platform, userDefaults)),
      activity_(std::make_shared<ActivityCounter>()),
      counters_(std::make_shared<PurchaseCounters>()),
      bundle_(std::move(bundle)),
      userDefaults_(std::move(userDefaults)),
      consent_(Consent::of(userDefaults_)),
      epoch_(std::make_shared<Epoch>()),
      outboxExecutor_(std::make_shared<SerialExecutor>(platform.executor, "com.quillmar.purchaseOutbox")),
      gate_(std::make_shared<NetworkGate>(platform.http, outboxExecutor_)),
      outbox_(std::make_shared<Outbox>(
          Outbox::Surroundings{userDefaults_, platform.clock, outboxExecutor_, epoch_, activity_,
                               std::make_shared<ActivityCounter>(),
                               std::make_shared<HealthRecord>(epoch_, platform.clock, outboxExecutor_)},
          OutboxStore::purchasesKey)) {
  Log::setSink(platform_.logSink, platform_.clock);
}

QuillmarASAAttributionCore::~QuillmarASAAttributionCore() {
  gate_->abandon();
  for (const auto observer : observers_) {
    platform_.notifications->removeObserver(observer);
  }
}

void QuillmarASAAttributionCore::setOptions(const QuillmarOptions& options) {
  const std::lock_guard lock(mutex_);
  if (options.reliableDelivery && !outbox_->isStarted()) {
    outbox_->start(std::make_unique<KeptPurchases>(weak_from_this()));
  }
  options_ = options;
  if (options.requireConsent) {
    consent_->require();
  }
}

// Disabled, and without effect of what was begun; what is stored goes right after it.
void QuillmarASAAttributionCore::stop() {
  NetworkGate::Requests held;  // their tasks go with it, outside the lock
  epoch_->raise([&] {
    if (get(options_).reliableDelivery && outbox_->isMine()) {
      outbox_->clear();
    }
    held = gate_->takeHeld();
  });
  disable();
}

// An activation wakes what waits for its next attempt.
void QuillmarASAAttributionCore::observeActivations() {
  if (!get(observers_).empty()) {
    return;
  }
  std::vector<platform::NotificationCenter::ObserverId> observers;
  for (const auto notification :
       {platform::Notification::applicationDidBecomeActive, platform::Notification::sceneDidActivate}) {
    observers.push_back(platform_.notifications->addObserver(notification, [weak = weak_from_this()] {
      guarded("activation", [&] {
        if (const auto self = weak.lock()) {
          self->outbox_->wake();
        }
      });
    }));
  }
  set(observers_, std::move(observers));
}

void QuillmarASAAttributionCore::enableASAAttributionTracking() {
  const std::uint64_t epoch = epoch_->current();
  if (!consent_->mayWork()) {
    Consent::Call call = [weak = weak_from_this(), epoch](platform::Executor& startUp) {
      startUp.post([weak, epoch] {  // behind a call of `configure`, which stores the key
        guarded("enableASAAttributionTracking", [&] {
          if (const auto self = weak.lock(); self && self->epoch_->current() == epoch) {
            self->enable(epoch);
          }
        });
      });
    };
    if (consent_->hold(std::move(call)) != Consent::Held::no) {
      Log::debug("QuillmarASAAttribution - Waiting for consent");
      return;
    }
  }
  enable(epoch);
}

void QuillmarASAAttributionCore::enable(std::uint64_t epoch) {
  Log::error("QuillmarASAAttribution - enableASAAttributionTracking called");
  // The suite itself, not the store of this instance: that is where configuring puts the key.
  auto keyRepository = std::make_shared<VerificationKeyRepository>(quillMarDefaults(platform_.userDefaults));
  set(verificationKeyRepository_, keyRepository);
  const std::optional<std::string> key = keyRepository->fetchVerificationKey();
  if (!key) {
    // Kept although it speaks of another setting: this line is the known sign of a missing verification key.
    Log::error("AppId key must be provided in Info.plist");
    note(QuillmarASAAttributionHealth::State::noKey);
    return;
  }
  set(quillmarVerificationKey_, *key);
  const QuillmarOptions options = get(options_);
  buildRepositories(*key, options, epoch);
  const bool reliably = options.reliableDelivery && outbox_->isMine();
  set(purchaseProcessor_, std::make_shared<PurchaseProcessor>(asaAttributionTrackingRepository(), eventsRepository(),
                                                              userDefaults_, counters_, reliably ? outbox_ : nullptr));
  if (reliably) {
    observeActivations();
    outbox_->wake();  // what an earlier run has left
  }
  const auto processor = purchaseProcessor();
  if (!processor) {  // disabled meanwhile, on another thread
    Log::error("Failed to initialize PurchaseInterceptor: purchaseProcessor is nil");
    return;
  }
  Log::error("QuillmarASAAttribution - Creating PurchaseInterceptor");
  set(purchaseInterceptor_, std::make_shared<PurchaseInterceptor>(processor, platform_.subscriptionUpdates,
                                                                  platform_.executor, activity_, counters_));
  Log::error("QuillmarASAAttribution - PurchaseInterceptor created successfully");
  Log::error("QuillmarASAAttribution - About to start listening for purchases");
  std::shared_ptr<TaskHandle> enabling = startListener();
  Log::error("QuillmarASAAttribution - Purchase listener task assigned");
  fetchAttributionIfAbsent(std::move(enabling), epoch);
}

void QuillmarASAAttributionCore::buildRepositories(const std::string& verificationKey, const QuillmarOptions& options,
                                                   std::uint64_t epoch) {
  const std::shared_ptr<NetworkManagerProtocol> networkManager = makeNetworkManager(gate_);
  auto appleClient = std::make_shared<AppleSearchAdsApiClient>(
      networkManager, std::string(platform::originOf(platform_.attributionUrl, Config::attributionUrlString)), options);
  auto persistence = std::make_shared<ASADataPersistence>(platform_.files, std::nullopt, options);
  set(asaAttributionTrackingRepository_,
      std::make_shared<ASAAttributionTrackingRepository>(std::move(appleClient), std::move(persistence),
                                                         Epoch::Term(epoch_, epoch)));
  auto eventsClient = std::make_shared<EventsApiClient>(
      networkManager, verificationKey, std::string(platform::originOf(platform_.serviceUrl, Config::urlString)),
      options.sendUserAgent ? userAgentOf(bundle_) : std::string());
  set(eventsRepository_, std::make_shared<EventsRepository>(std::move(eventsClient)));
}

std::shared_ptr<TaskHandle> QuillmarASAAttributionCore::startListener() {
  auto handle = std::make_shared<TaskHandle>();
  Activity inFlight(activity_);
  Task<void> listener = runListener(weak_from_this(), handle, std::move(inFlight));
  spawn(platform_.executor, std::move(listener));
  // An earlier task is not cancelled: its listener ended with the interceptor that was replaced.
  set(purchaseListenerTask_, handle);
  return handle;
}

void QuillmarASAAttributionCore::fetchAttributionIfAbsent(std::shared_ptr<TaskHandle> enabling, std::uint64_t epoch) {
  auto repository = asaAttributionTrackingRepository();
  if (!repository || repository->hasAttributionData()) {
    Log::info("ASA attribution data already exists locally");
    note(QuillmarASAAttributionHealth::State::stored);
    return;
  }
  if (isSwitchedOff()) {
    note(QuillmarASAAttributionHealth::State::switchedOff);
    return;
  }
  note(QuillmarASAAttributionHealth::State::fetching);
  Activity inFlight(activity_);
  Task<void> fetch = fetchAttribution(weak_from_this(), std::move(enabling), platform_.attributionToken,
                                      std::move(repository), Epoch::Term(epoch_, epoch), std::move(inFlight));
  spawn(platform_.executor, std::move(fetch));
}

bool QuillmarASAAttributionCore::isSwitchedOff() const {
  if (!get(options_).strictSwitch || isSDKEnabled(*userDefaults_)) {
    return false;
  }
  Log::debug("QuillmarASAAttribution - SDK is disabled by server configuration, the attribution is not fetched");
  return true;
}

void QuillmarASAAttributionCore::disableASAAttributionTracking() {
  if (consent_->mayWork()) {
    disable();
  } else {
    epoch_->raise([] {});  // an enabling that waits for consent ends without effect
  }
}

void QuillmarASAAttributionCore::disable() {
  Log::debug("QuillmarASAAttribution - Disabling ASA attribution tracking");
  std::shared_ptr<TaskHandle> listener;
  {
    const std::lock_guard lock(mutex_);
    listener.swap(purchaseListenerTask_);
  }
  if (listener) {
    listener->cancel();
  }
  Activity inFlight(activity_);
  Task<void> stop = stopListener(weak_from_this(), purchaseInterceptor(), std::move(inFlight));
  spawn(platform_.executor, std::move(stop));
  // Right away: the task above mostly finds nothing left to stop, and the listener ends with its interceptor.
  set(purchaseInterceptor_, nullptr);
  set(purchaseProcessor_, nullptr);
}

std::shared_ptr<PurchaseInterceptorProtocol> QuillmarASAAttributionCore::currentInterceptor(
    const std::weak_ptr<QuillmarASAAttributionCore>& weak) {
  const auto self = weak.lock();
  return self ? self->purchaseInterceptor() : nullptr;
}

Task<void> QuillmarASAAttributionCore::runListener(std::weak_ptr<QuillmarASAAttributionCore> weak,
                                                   std::shared_ptr<TaskHandle> handle,
                                                   [[maybe_unused]] Activity activity) {
  Log::error("QuillmarASAAttribution - Task created, calling startListeningForPurchases");
  const auto interceptor = currentInterceptor(weak);
  if (interceptor && !handle->isCancelled()) {
    co_await interceptor->startListeningForPurchases();
  }
  Log::error("QuillmarASAAttribution - startListeningForPurchases completed");
}

// Stops the interceptor only while it is in place: one that was put there after the disabling is left alone.
Task<void> QuillmarASAAttributionCore::stopListener(std::weak_ptr<QuillmarASAAttributionCore> weak,
                                                    std::weak_ptr<PurchaseInterceptorProtocol> dropped,
                                                    [[maybe_unused]] Activity activity) {
  const auto interceptor = currentInterceptor(weak);
  if (interceptor && interceptor == dropped.lock()) {
    co_await interceptor->stopListeningForPurchases();
  }
}

namespace {

/// What kept the attribution from being fetched; null when nothing did.
Task<std::exception_ptr> fetchOnce(std::shared_ptr<platform::AttributionTokenProvider> provider,
                                   std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> repository,
                                   Epoch::Term term) {
  Task<platform::AttributionTokenResult> request = requestToken(std::move(provider));
  platform::AttributionTokenResult result = co_await std::move(request);
  if (const auto* error = std::get_if<platform::PlatformError>(&result)) {
    co_return std::make_exception_ptr(std::runtime_error(error->localizedDescription));
  }
  if (term.isOver()) {
    co_return std::make_exception_ptr(std::system_error(platform::URLError::cancelled));
  }
  try {
    co_await repository->fetchAndStoreAttributionData(std::get<std::string>(std::move(result)));
  } catch (...) {
    co_return std::current_exception();
  }
  co_return nullptr;
}

}  // namespace

Task<void> QuillmarASAAttributionCore::fetchAttribution(
    std::weak_ptr<QuillmarASAAttributionCore> weak, std::shared_ptr<TaskHandle> enabling,
    std::shared_ptr<platform::AttributionTokenProvider> provider,
    std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> repository, Epoch::Term term, Activity activity) {
  using State = QuillmarASAAttributionHealth::State;
  AttributionRetries retries;
  for (;;) {
    Task<std::exception_ptr> attempt = fetchOnce(provider, repository, term);
    const std::exception_ptr failure = co_await std::move(attempt);
    std::shared_ptr<QuillmarASAAttributionCore> self = weak.lock();
    if (!failure) {
      Log::info("Successfully fetched and stored ASA attribution data");
      if (self) {
        self->note(State::stored);
      }
      co_return;
    }
    Log::error("Failed to fetch ASA attribution data: {}", localizedDescription(failure));
    if (!self || term.isOver()) {
      co_return;
    }
    const std::optional<std::chrono::seconds> wait = self->get(self->options_).liveAttribution
                                                         ? retries.waitAfter(failure, self->platform_.clock->now())
                                                         : std::nullopt;
    self->note(wait ? State::waiting : State::failed, localizedDescription(failure));
    if (!wait) {
      co_return;
    }
    Log::debug("QuillmarASAAttribution - Asking for the attribution again in {} s", wait->count());
    std::shared_ptr<platform::Clock> clock = self->platform_.clock;
    const std::shared_ptr<ActivityCounter> counter = self->activity_;
    self.reset();
    activity.end();  // `drain` does not wait for an attempt that is yet to come
    co_await sleepFor(std::move(clock), *wait);
    activity = Activity(counter);
    self = weak.lock();
    if (!self || self->get(self->purchaseListenerTask_) != enabling) {
      co_return;
    }
    if (self->isSwitchedOff()) {
      self->note(State::switchedOff);
      co_return;
    }
    self->note(State::fetching);
  }
}

bool QuillmarASAAttributionCore::drain(std::chrono::milliseconds timeout) {
  gate_->warnWhileClosed();
  return activity_->waitUntilIdle(deadlineAfter(timeout));
}

QuillmarASAAttributionStatistics QuillmarASAAttributionCore::statistics() const noexcept {
  const Outbox::Counts& outbox = outbox_->counts();
  const std::uint64_t lost = outbox.refused.load() + outbox.expired.load() + outbox.displaced.load();
  return {counters_->sent.load(),    counters_->failed.load() + lost, counters_->unverified.load(),
          counters_->skipped.load(), counters_->dropped.load(),       outbox_->unsent()};
}

void QuillmarASAAttributionCore::note(QuillmarASAAttributionHealth::State state, std::string error) {
  const std::lock_guard lock(mutex_);
  health_.state = state;
  health_.error.swap(error);
}

QuillmarASAAttributionHealth QuillmarASAAttributionCore::health() const {
  QuillmarASAAttributionHealth health = get(health_);
  health.listening = purchaseInterceptor() != nullptr;
  return health;
}

std::shared_ptr<VerificationKeyRepositoryProtocol> QuillmarASAAttributionCore::verificationKeyRepository() const {
  return get(verificationKeyRepository_);
}
std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> QuillmarASAAttributionCore::asaAttributionTrackingRepository()
    const {
  return get(asaAttributionTrackingRepository_);
}
std::shared_ptr<EventsRepositoryProtocol> QuillmarASAAttributionCore::eventsRepository() const {
  return get(eventsRepository_);
}
std::shared_ptr<PurchaseInterceptorProtocol> QuillmarASAAttributionCore::purchaseInterceptor() const {
  return get(purchaseInterceptor_);
}
std::shared_ptr<PurchaseProcessorProtocol> QuillmarASAAttributionCore::purchaseProcessor() const {
  return get(purchaseProcessor_);
}
std::string QuillmarASAAttributionCore::quillmarVerificationKey() const {
  return get(quillmarVerificationKey_);
}

}  // namespace quillmar
