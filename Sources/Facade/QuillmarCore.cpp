#include "Facade/QuillmarCore.h"

#include <cstdio>
#include <utility>

#include "Conversion/RealSKAdNetwork.h"
#include "Logging/Logger.h"
#include "Settings/Config.h"
#include "Settings/EnabledFlag.h"

namespace quillmar {

namespace {

/// How many events are on their way through the pipeline at a time; the others wait as names and parameters.
constexpr std::size_t eventsInFlight = 64;

}  // namespace

QuillmarCore::QuillmarCore(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
                           const platform::Platform& platform)
    : platform_(platform),
      activity_(std::make_shared<ActivityCounter>()),
      eventExecutor_(std::make_shared<SerialExecutor>(platform.executor, "com.quillmar.eventProcessing")),
      pendingEventsQueue_(std::make_shared<SerialExecutor>(platform.executor, "com.quillmar.pendingEvents")),
      conversionTrackingManager_(std::make_shared<ConversionTrackingManager>(
          userDefaults, std::make_shared<RealSKAdNetwork>(platform.storeKitAdNetwork, platform.device),
          platform.adAttributionKit, platform.device, platform.mainExecutor ? platform.mainExecutor : eventExecutor_,
          activity_)),
      userDefaults_(std::move(userDefaults)),
      bundle_(std::move(bundle)),
      eventTracker_(std::make_shared<EventTracker>(userDefaults_, platform.clock)),
      trackingQueue_(std::make_shared<TrackingQueue>(eventTracker_, eventExecutor_)),
      conversionValueResolver_(std::make_shared<ConversionValueResolver>(userDefaults_)),
      eventProcessingQueue_(std::make_shared<TaskQueue>(eventExecutor_, eventsInFlight, activity_)) {}

std::string QuillmarCore::quillmarVerificationKey() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return quillmarVerificationKey_;
}

QuillmarStatistics QuillmarCore::statistics() const {
  return {counters_.sent.load(), counters_.dropped.load(), pendingEventCount(), counters_.logged.load(),
          counters_.failed.load()};
}

QuillmarState QuillmarCore::state() const {
  QuillmarState state;
  if (const std::optional<Window> window = getCurrentWindow()) {
    state.window = static_cast<int>(*window);
  }
  state.appId = userDefaults_->string(Config::serverAppId);
  state.enabled = !userDefaults_->object(Config::sdkEnabled) || userDefaults_->boolean(Config::sdkEnabled);
  state.verificationKeyValid = !SharedState::instance().getVerificationKeyInvalid();
  return state;
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

std::shared_ptr<ConversionTrackingManager> QuillmarCore::conversionTrackingManager() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return conversionTrackingManager_;
}

void QuillmarCore::setConversionTrackingManager(std::shared_ptr<ConversionTrackingManager> manager) {
  const std::lock_guard lock(collaboratorsMutex_);
  conversionTrackingManager_.swap(manager);
}

void QuillmarCore::postWeakly(platform::Executor& executor, std::function<void(QuillmarCore&)> work) {
  auto inFlight = std::make_shared<Activity>(activity_);
  executor.post([weak = weak_from_this(), inFlight = std::move(inFlight), work = std::move(work)] {
    try {
      if (const auto self = weak.lock()) {
        work(*self);
      }
    } catch (const std::exception& error) {
      Logger::error("Quillmar - Unexpected error: {}", error.what());
    }
  });
}

std::string_view QuillmarCore::serviceUrl() const {
  return platform_.serviceUrl.empty() ? Config::urlString : std::string_view(platform_.serviceUrl);
}

void QuillmarCore::print(std::string_view line) const {
  if (platform_.standardOutput) {
    platform_.standardOutput(line);
  } else {
    std::printf("%.*s\n", static_cast<int>(line.size()), line.data());
  }
}

}  // namespace quillmar
