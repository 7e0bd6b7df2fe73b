#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/Guarded.h"
#include "Logging/Log.h"
#include "Network/ConfigApiClientClient.h"
#include "Network/EventServerLogApiClient.h"
#include "Network/NetworkManager.h"
#include "Network/UserAgent.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Persistence/ConversionValuesRepository.h"
#include "Persistence/EventServerLogRepository.h"
#include "Platform/PlatformMembers.h"
#include "Settings/Calendar.h"
#include "Settings/MockSwitch.h"
#include "Settings/QuillMarDefaults.h"
#include "Settings/StoreSetting.h"
#include "Settings/Uuid.h"
#include "Settings/VerificationKeyRepository.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {
/// The day limit of the synchronous path, deliberately not `Config::daysLimit`.
constexpr std::int64_t synchronousDaysLimit = 35;
}  // namespace

void QuillmarCore::configure(std::string verificationKey) {
  Log::setLogLevel(logLevel());
  Configuration configuration{std::move(verificationKey), epoch_->current()};
  if (mayWork() || !holdConfiguration(configuration)) {
    beginConfiguring(std::move(configuration));
  }
}

void QuillmarCore::beginConfiguring(Configuration configuration) {
  const bool synchronously = MockSwitch::isOn();
  {
    const std::lock_guard lock(collaboratorsMutex_);
    quillmarVerificationKey_ = configuration.verificationKey;
    if (!synchronously) {
      configurations_.push_back(configuration);
    }
  }
  if (synchronously) {
    configureSynchronously(configuration.verificationKey, configuration.epoch);
    return;
  }
  auto inFlight = std::make_shared<Activity>(activity_);
  lifecycleQueue_->post([self = shared_from_this(), inFlight = std::move(inFlight)] { self->configureNext(); });
}

void QuillmarCore::configureNext() {
  while (const std::optional<Configuration> next = takeConfiguration()) {
    bool initialized = false;
    epoch_->during(next->epoch, [&] { initialized = prepareInBackground(next->verificationKey); });
    if (initialized) {
      finishConfiguring(next->verificationKey, next->epoch);
    }
  }
}

// From a list, so that what callers on several threads set last is also configured last.
std::optional<QuillmarCore::Configuration> QuillmarCore::takeConfiguration() {
  const std::lock_guard lock(collaboratorsMutex_);
  if (configurations_.empty()) {
    return std::nullopt;
  }
  Configuration next = std::move(configurations_.front());
  configurations_.pop_front();
  return next;
}

bool QuillmarCore::prepareInBackground(const std::string& verificationKey) {
  Log::info("Starting configuration of Quillmar with appId: {}", verificationKey);
  // The suite itself, not the store of this instance: attribution tracking looks for the key there.
  auto keyRepository = std::make_shared<VerificationKeyRepository>(quillMarDefaults(platform_.userDefaults));
  setVerificationKeyRepository(keyRepository);
  keyRepository->save(verificationKey);
  forgetOldEvents();  // also when the library stays off

  const std::optional<std::int64_t> days = daysSinceFirstRun();
  if (days) {
    if (*days > Config::daysLimit) {
      Log::info("SDK not initialized. More than {} days have passed since the first run.", Config::daysLimit);
      return false;
    }
    Log::info("First run date: {}. Days since first run: {}.",
              dateDescription(userDefaults_->date(Config::firstRunDateKey).value_or(platform_.clock->now())), *days);
  }
  isInitialized_.store(true, std::memory_order_relaxed);
  buildRepositories(verificationKey);
  return true;
}

void QuillmarCore::configureSynchronously(const std::string& verificationKey, std::uint64_t epoch) {
  bool initialized = false;
  epoch_->during(epoch, [&] { initialized = prepareSynchronously(verificationKey); });
  if (initialized) {
    finishConfiguring(verificationKey, epoch);
  }
}

bool QuillmarCore::prepareSynchronously(const std::string& verificationKey) {
  forgetOldEvents();
  const std::optional<std::int64_t> days = daysSinceFirstRun();
  if (days) {
    if (*days > synchronousDaysLimit) {
      Log::info("More than 35 days have passed since first run. SDK will not be initialized.");
      return false;
    }
    Log::info("Less than 35 days since first run. Continuing with initialization.");
  }
  isInitialized_.store(true, std::memory_order_relaxed);
  buildRepositories(verificationKey);
  return true;
}

void QuillmarCore::finishConfiguring(const std::string& verificationKey, std::uint64_t epoch) {
  const Life life{weak_from_this(), epoch};
  registerForActivation(epoch);
  if (!life.lock()) {
    return;  // a reset came
  }
  useStoredConfiguration(life);
  if (MockSwitch::isOn()) {
    setHasFetchedConversionValues(false);
  } else {
    fetchAndSaveConversionValues(life);
  }
  wakeOutbox();
  Log::info("Quillmar initialized with appId: {}", verificationKey);
}

std::optional<std::int64_t> QuillmarCore::daysSinceFirstRun() {
  if (const auto firstRun = userDefaults_->date(Config::firstRunDateKey)) {
    return Calendar(*platform_.clock).wholeDays(*firstRun, platform_.clock->now());
  }
  recordFirstRun();
  return std::nullopt;
}

void QuillmarCore::forgetOldEvents() {
  if (const int days = options().limits.historyDays; days > 0) {
    eventTracker_->forgetBefore(platform_.clock->now() - std::chrono::hours(24) * days);
  }
}

void QuillmarCore::recordFirstRun() {
  // The identifier first: whoever finds the date finds the identifier too.
  if (!userDefaults_->object(Config::quillMarId)) {
    storeSetting(*userDefaults_, Config::quillMarId, makeUuid());
  }
  const auto now = platform_.clock->now();
  storeSetting(*userDefaults_, Config::firstRunDateKey, now);
  Log::info("First run date saved: {}", dateDescription(now));
}

void QuillmarCore::buildRepositories(const std::string& verificationKey) {
  const std::shared_ptr<NetworkManagerProtocol> networkManager = makeNetworkManager(gate_);
  const std::string baseUrl(platform::originOf(platform_.serviceUrl, Config::urlString));
  const std::string userAgent = options().sendUserAgent ? userAgentOf(bundle_) : std::string();
  const auto suite = quillMarDefaults(platform_.userDefaults);

  auto configClient = std::make_shared<ConfigApiClientClient>(networkManager, verificationKey, baseUrl, userAgent);
  auto eventLogClient =
      std::make_shared<EventServerLogApiClient>(networkManager, verificationKey, suite, baseUrl, userAgent);
  auto item =
      std::make_shared<PersistenceItem<ConversionValues>>(platform_.files, ConversionValuesPersistence::filename);
  auto persistence = std::make_shared<ConversionValuesPersistence>(std::move(item));
  setConversionValuesRepository(std::make_shared<ConversionValuesRepository>(
      std::move(configClient), std::move(persistence), userDefaults_, lifecycleQueue_, epoch_));
  setEventServerLogRepository(
      std::make_shared<EventServerLogRepository>(std::move(eventLogClient), suite, eventExecutor_));
}

void QuillmarCore::registerForActivation(std::uint64_t epoch) {
  using platform::Notification;
  const auto observe = [this](Notification notification, void (QuillmarCore::*handle)()) {
    return platform_.notifications->addObserver(notification, [weak = weak_from_this(), handle] {
      guarded("activation", [&] {
        if (const auto self = weak.lock()) {
          ((*self).*handle)();
        }
      });
    });
  };
  const auto observers = {observe(Notification::applicationDidBecomeActive, &QuillmarCore::applicationDidBecomeActive),
                          observe(Notification::sceneDidActivate, &QuillmarCore::sceneDidActivate)};
  const bool kept = epoch_->during(epoch, [&] {
    const std::lock_guard lock(collaboratorsMutex_);
    observers_.insert(observers_.end(), observers);
  });
  if (!kept) {
    for (const auto observer : observers) {
      platform_.notifications->removeObserver(observer);
    }
  }
}

}  // namespace quillmar
