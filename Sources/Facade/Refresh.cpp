#include <chrono>
#include <cmath>
#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Logger.h"
#include "Settings/Calendar.h"
#include "Settings/Config.h"
#include "Settings/MockSwitch.h"
#include "Settings/StoreSetting.h"

namespace quillmar {

void QuillmarCore::applicationDidBecomeActive() {
  Logger::info("Application did become active");
  handleAppBecomeActive();
}

void QuillmarCore::sceneDidActivate() {
  Logger::info("Scene did activate");
  handleAppBecomeActive();
}

void QuillmarCore::handleAppBecomeActive() {
  // The test runs again inside the fetch; both runs log.
  if (shouldRefreshConversionValues()) {
    Logger::debug("App became active, fetching conversion values...");
    fetchAndSaveConversionValues();
  } else {
    Logger::debug("App became active but conversion values don't need refresh");
  }
}

void QuillmarCore::fetchAndSaveConversionValues() {
  if (isFetching_.load(std::memory_order_relaxed)) {
    Logger::debug("Fetch already in progress, skipping...");
    return;
  }
  if (!shouldRefreshConversionValues()) {
    Logger::debug("Conversion values recently fetched, skipping...");
    return;
  }
  Logger::debug("Starting to fetch and save conversion values...");
  Activity inFlight(activity_);
  spawn(platform_.executor, fetchWithRetry(weak_from_this(), 3, 5.0, std::move(inFlight)));
}

bool QuillmarCore::shouldRefreshConversionValues() const {
  if (!hasFetchedConversionValues()) {
    Logger::debug("First fetch in this session, proceeding...");
    return true;
  }
  const auto lastFetch = userDefaults_->date(Config::lastConversionValuesFetchTimestamp);
  if (!lastFetch) {
    Logger::debug("No previous fetch timestamp found, proceeding...");
    return true;
  }
  using Seconds = std::chrono::duration<double>;
  // In floating point from the start: dates that are centuries apart do not fit the clock's own type.
  const double elapsed =
      Seconds(platform_.clock->now().time_since_epoch()).count() - Seconds(lastFetch->time_since_epoch()).count();
  const bool shouldRefresh = elapsed >= Config::conversionValuesRefreshInterval;
  Logger::debug("Time since last fetch: {}s (threshold: {}s), should refresh: {}", static_cast<std::int64_t>(elapsed),
                static_cast<std::int64_t>(Config::conversionValuesRefreshInterval), shouldRefresh);
  return shouldRefresh;
}

void QuillmarCore::saveLastFetchTimestamp() {
  const auto now = platform_.clock->now();
  storeSetting(*userDefaults_, Config::lastConversionValuesFetchTimestamp, now);
  if (Logger::passes(LogLevel::debug)) {
    Logger::debug("Saved last fetch timestamp: {}", dateDescription(now));
  }
}

/// Ends a fetch whose task is dropped half-way or ends by an exception, so that another one can start.
class QuillmarCore::FetchGuard {
 public:
  explicit FetchGuard(std::weak_ptr<QuillmarCore> core) noexcept : core_(std::move(core)) {}
  ~FetchGuard() {
    if (const auto core = core_.lock()) {
      core->isRetriying_.store(false, std::memory_order_relaxed);
      core->isFetching_.store(false, std::memory_order_relaxed);
      core->setHasFetchedConversionValues(core->isConfigLoaded_.load(std::memory_order_relaxed));
    }
  }
  FetchGuard(const FetchGuard&) = delete;
  FetchGuard& operator=(const FetchGuard&) = delete;

  /// The fetch has come to an end of its own.
  void release() noexcept { core_.reset(); }

 private:
  std::weak_ptr<QuillmarCore> core_;
};

Task<void> QuillmarCore::fetchWithRetry(std::weak_ptr<QuillmarCore> weak, int maxAttempts, double delaySeconds,
                                        Activity activity) {
  std::shared_ptr<QuillmarCore> self = weak.lock();
  if (!self) {
    co_return;
  }
  if (self->isRetriying_.exchange(true, std::memory_order_relaxed)) {
    Logger::debug("Already retrying, skipping...");
    co_return;
  }
  FetchGuard guard(weak);
  self->isFetching_.store(true, std::memory_order_relaxed);
  // Before the outcome is known, so that other refresh tests see that a fetch is under way.
  self->setHasFetchedConversionValues(true);

  for (int attempt = 0; attempt < maxAttempts; ++attempt) {
    Logger::debug("Performing network request to fetch conversion values. Attempt: {}", attempt + 1);
    std::string failure = "The repository is missing";
    bool fetched = false;
    if (const auto repository = self->conversionValuesRepository()) {
      self.reset();
      try {
        co_await repository->fetchAndSaveConversionValues();
        fetched = true;
      } catch (const std::exception& error) {
        failure = textualDescription(error);
      }
      self = weak.lock();
      if (!self) {
        co_return;
      }
    }
    if (fetched) {
      Logger::debug("Conversion values fetched and saved from the server.");
      self->saveLastFetchTimestamp();
      self->isConfigLoaded_.store(true, std::memory_order_relaxed);
      Logger::debug("Configuration marked as loaded - app_id should now be available");
      self->processPendingEvents();
      self.reset();
      co_await checkLockWindowHours(weak);
      guard.release();
      if (const auto still = weak.lock()) {
        still->isRetriying_.store(false, std::memory_order_relaxed);
        still->isFetching_.store(false, std::memory_order_relaxed);
      }
      co_return;
    }
    Logger::error("Failed to fetch conversion values: {}. Attempt: {}", failure, attempt + 1);
    if (attempt == maxAttempts - 1) {
      guard.release();
      self->isRetriying_.store(false, std::memory_order_relaxed);
      self->giveUpFetching(maxAttempts, failure);
      co_return;
    }
    const std::chrono::nanoseconds wait(static_cast<std::int64_t>(delaySeconds * std::exp2(attempt) * 1e9));
    std::shared_ptr<platform::Clock> clock = self->platform_.clock;
    const std::shared_ptr<ActivityCounter> counter = self->activity_;
    self.reset();
    activity.end();  // nobody waits for a fetch that waits
    co_await sleepFor(std::move(clock), wait);
    activity = Activity(counter);
    self = weak.lock();
    if (!self) {
      co_return;
    }
  }
  guard.release();
  // Without any attempt, `isRetriying` stays set, on purpose.
  self->giveUpFetching(maxAttempts, "Unknown");
}

void QuillmarCore::giveUpFetching(int maxAttempts, const std::string& lastError) {
  isFetching_.store(false, std::memory_order_relaxed);
  Logger::error("Failed to fetch conversion values after {} attempts. Last error: {}", maxAttempts, lastError);
  if (!MockSwitch::isOn()) {
    setHasFetchedConversionValues(false);  // the next activation tries again at once
  }
}

}  // namespace quillmar
