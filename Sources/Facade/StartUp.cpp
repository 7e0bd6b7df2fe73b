#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Logger.h"
#include "Network/ConfigApiClientClient.h"
#include "Network/EventServerLogApiClient.h"
#include "Network/MockNetworkManager.h"
#include "Network/NetworkManager.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Persistence/ConversionValuesRepository.h"
#include "Persistence/EventServerLogRepository.h"
#include "Platform/OwnProcess.h"
#include "Settings/Calendar.h"
#include "Settings/Config.h"
#include "Settings/MockSwitch.h"
#include "Settings/QuillMarDefaults.h"
#include "Settings/StoreSetting.h"
#include "Settings/Uuid.h"
#include "Settings/VerificationKeyRepository.h"

namespace quillmar {

namespace {
/// The day limit of the synchronous path. It differs from `Config::daysLimit` on purpose.
constexpr std::int64_t synchronousDaysLimit = 35;
}  // namespace

void QuillmarCore::configure(std::string verificationKey) {
  Logger::setLogLevel(logLevel());
  {
    const std::lock_guard lock(collaboratorsMutex_);
    quillmarVerificationKey_ = verificationKey;
  }
  if (MockSwitch::isOn()) {
    configureSynchronously(verificationKey);
    return;
  }
  auto inFlight = std::make_shared<Activity>(activity_);
  platform_.executor->post(
      [self = shared_from_this(), inFlight = std::move(inFlight), key = std::move(verificationKey)] {
        try {
          self->configureInBackground(key);
        } catch (const std::exception& error) {
          Logger::error("Quillmar - Failed to configure: {}", textualDescription(error));
        }
      });
}

void QuillmarCore::configureInBackground(const std::string& verificationKey) {
  Logger::info("Starting configuration of Quillmar with appId: {}", verificationKey);
  // The suite itself, not the store of this instance: attribution tracking looks for the key there.
  auto keyRepository = std::make_shared<VerificationKeyRepository>(quillMarDefaults(platform_.userDefaults));
  setVerificationKeyRepository(keyRepository);
  keyRepository->save(verificationKey);

  const std::optional<std::int64_t> days = daysSinceFirstRun();
  if (days) {
    if (*days > Config::daysLimit) {
      Logger::info("SDK not initialized. More than {} days have passed since the first run.", Config::daysLimit);
      return;
    }
    Logger::info("First run date: {}. Days since first run: {}.",
                 dateDescription(userDefaults_->date(Config::firstRunDateKey).value_or(platform_.clock->now())), *days);
  }
  isInitialized_.store(true, std::memory_order_relaxed);
  buildRepositories(verificationKey);
  registerForActivation();
  fetchAndSaveConversionValues();
  Logger::info("Quillmar initialized with appId: {}", verificationKey);
}

void QuillmarCore::configureSynchronously(const std::string& verificationKey) {
  const std::optional<std::int64_t> days = daysSinceFirstRun();
  if (days) {
    if (*days > synchronousDaysLimit) {
      Logger::info("More than 35 days have passed since first run. SDK will not be initialized.");
      return;
    }
    Logger::info("Less than 35 days since first run. Continuing with initialization.");
  }
  isInitialized_.store(true, std::memory_order_relaxed);
  buildRepositories(verificationKey);
  registerForActivation();
  if (MockSwitch::isOn()) {
    setHasFetchedConversionValues(false);
  } else {
    fetchAndSaveConversionValues();
  }
  Logger::info("Quillmar initialized with appId: {}", verificationKey);
}

std::optional<std::int64_t> QuillmarCore::daysSinceFirstRun() {
  if (const auto firstRun = userDefaults_->date(Config::firstRunDateKey)) {
    return Calendar(*platform_.clock).wholeDays(*firstRun, platform_.clock->now());
  }
  recordFirstRun();
  return std::nullopt;
}

void QuillmarCore::recordFirstRun() {
  // The identifier first: whoever finds the date finds the identifier too.
  if (!userDefaults_->object(Config::quillMarId)) {
    storeSetting(*userDefaults_, Config::quillMarId, makeUuid());
  }
  const auto now = platform_.clock->now();
  storeSetting(*userDefaults_, Config::firstRunDateKey, now);
  Logger::info("First run date saved: {}", dateDescription(now));
}

void QuillmarCore::buildRepositories(const std::string& verificationKey) {
  const std::shared_ptr<NetworkManagerProtocol> networkManager = makeNetworkManager();
  const std::string baseUrl(serviceUrl());
  const auto suite = quillMarDefaults(platform_.userDefaults);

  auto configClient = std::make_shared<ConfigApiClientClient>(networkManager, verificationKey, baseUrl);
  auto eventLogClient = std::make_shared<EventServerLogApiClient>(networkManager, verificationKey, suite, baseUrl);
  auto item =
      std::make_shared<PersistenceItem<ConversionValues>>(platform_.files, ConversionValuesPersistence::filename);
  auto persistence = std::make_shared<ConversionValuesPersistence>(std::move(item));
  setConversionValuesRepository(
      std::make_shared<ConversionValuesRepository>(std::move(configClient), std::move(persistence), userDefaults_));
  setEventServerLogRepository(std::make_shared<EventServerLogRepository>(std::move(eventLogClient), suite));
}

std::shared_ptr<NetworkManagerProtocol> QuillmarCore::makeNetworkManager() const {
  if (MockSwitch::isOn()) {
    return std::make_shared<MockNetworkManager>();
  }
  return std::make_shared<NetworkManager>(platform_.http);
}

void QuillmarCore::registerForActivation() {
  using platform::Notification;
  const auto observe = [this](Notification notification, void (QuillmarCore::*handle)()) {
    return platform_.notifications->addObserver(notification, [weak = weak_from_this(), handle] {
      if (const auto self = OwnProcess::isHere() ? weak.lock() : nullptr) {
        ((*self).*handle)();
      }
    });
  };
  const auto application = observe(Notification::applicationDidBecomeActive, &QuillmarCore::applicationDidBecomeActive);
  const auto scene = observe(Notification::sceneDidActivate, &QuillmarCore::sceneDidActivate);
  const std::lock_guard lock(collaboratorsMutex_);
  observers_.insert(observers_.end(), {application, scene});
}

}  // namespace quillmar
