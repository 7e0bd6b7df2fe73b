#include <chrono>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Settings/Calendar.h"
#include "Settings/MockSwitch.h"
#include "Settings/StoreSetting.h"
#include "quillmar/Config.h"

namespace quillmar {

void QuillmarCore::applicationDidBecomeActive() {
  if (!mayWork()) {
    return;
  }
  Log::info("Application did become active");
  const Life life = thisLife();
  postInLife(*lifecycleQueue_, life, [life](QuillmarCore& self) { self.handleAppBecomeActive(life); });
}

void QuillmarCore::sceneDidActivate() {
  if (!mayWork()) {
    return;
  }
  Log::info("Scene did activate");
  const Life life = thisLife();
  postInLife(*lifecycleQueue_, life, [life](QuillmarCore& self) { self.handleAppBecomeActive(life); });
}

void QuillmarCore::handleAppBecomeActive(const Life& life) {
  wakeOutbox();
  // The test runs again inside the fetch; both runs log.
  if (shouldRefreshConversionValues()) {
    Log::debug("App became active, fetching conversion values...");
    fetchAndSaveConversionValues(life);
  } else {
    Log::debug("App became active but conversion values don't need refresh");
  }
}

void QuillmarCore::fetchAndSaveConversionValues(const Life& life) {
  if (isFetching()) {
    Log::debug("Fetch already in progress, skipping...");
    return;
  }
  if (!shouldRefreshConversionValues()) {
    Log::debug("Conversion values recently fetched, skipping...");
    return;
  }
  Log::debug("Starting to fetch and save conversion values...");
  spawn(lifecycleQueue_, fetchWithRetry(life, 3, 5.0, Activity(activity_), Activity(fetches_)));
}

// For events only: locks by time still come with a fetch.
void QuillmarCore::useStoredConfiguration(const Life& life) {
  if (!options().useStoredConfiguration || !userDefaults_->string(Config::serverAppId) || !storedConfiguration()) {
    return;
  }
  if (epoch_->during(life.epoch, [&] { isConfigLoaded_.store(true, std::memory_order_relaxed); })) {
    Log::debug("Going on with the stored configuration");
    processPendingEvents(life);
  }
}

bool QuillmarCore::shouldRefreshConversionValues() const {
  if (!hasFetchedConversionValues()) {
    Log::debug("First fetch in this session, proceeding...");
    return true;
  }
  const std::optional<double> elapsed = secondsSinceFetch();
  if (!elapsed) {
    Log::debug("No previous fetch timestamp found, proceeding...");
    return true;
  }
  const bool shouldRefresh = *elapsed >= Config::conversionValuesRefreshInterval;
  Log::debug("Time since last fetch: {}s (threshold: {}s), should refresh: {}", static_cast<std::int64_t>(*elapsed),
             static_cast<std::int64_t>(Config::conversionValuesRefreshInterval), shouldRefresh);
  return shouldRefresh;
}

std::optional<double> QuillmarCore::secondsSinceFetch() const {
  using Seconds = std::chrono::duration<double>;
  const auto lastFetch = userDefaults_->date(Config::lastConversionValuesFetchTimestamp);
  if (!lastFetch) {
    return std::nullopt;
  }
  // In floating point from the start: dates that are centuries apart do not fit the clock's own type.
  return Seconds(platform_.clock->now().time_since_epoch()).count() - Seconds(lastFetch->time_since_epoch()).count();
}

void QuillmarCore::saveLastFetchTimestamp() {
  const auto now = platform_.clock->now();
  storeSetting(*userDefaults_, Config::lastConversionValuesFetchTimestamp, now);
  if (Log::passes(LogLevel::debug)) {
    Log::debug("Saved last fetch timestamp: {}", dateDescription(now));
  }
}

bool QuillmarCore::isFetching() const {
  const std::lock_guard lock(collaboratorsMutex_);
  return !isFetching_.expired();
}

bool QuillmarCore::hasFetchedConversionValues() const {
  // Before the outcome of a fetch is known, too, so that other refresh tests see that one is under way.
  return hasFetchedConversionValues_.load(std::memory_order_relaxed) || isFetching();
}

/// Null while another fetch is under way.
std::shared_ptr<QuillmarCore::Fetch> QuillmarCore::beginFetch() {
  auto fetch = std::make_shared<Fetch>();
  const std::lock_guard lock(collaboratorsMutex_);
  if (isRetriying_ || !isFetching_.expired()) {
    return nullptr;
  }
  isFetching_ = fetch;
  return fetch;
}

namespace {

/// What kept the repository from fetching; null when nothing did.
Task<std::exception_ptr> fetchOnce(std::shared_ptr<ConversionValuesRepositoryProtocol> repository) {
  try {
    if (!repository) {
      throw std::runtime_error("The repository is missing");
    }
    std::function<void(ConversionValuesRepositoryProtocol::Completion)> start =
        [repository](ConversionValuesRepositoryProtocol::Completion done) {
          repository->fetchAndSaveConversionValues(std::move(done));
        };
    co_return co_await awaitCallback<std::exception_ptr>(std::move(start));
  } catch (...) {
    co_return std::current_exception();
  }
}

}  // namespace

Task<void> QuillmarCore::fetchWithRetry(Life life, int maxAttempts, double delaySeconds, Activity activity,
                                        [[maybe_unused]] Activity fetching) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  if (!self) {
    co_return;
  }
  const std::shared_ptr<Fetch> fetch = self->beginFetch();
  if (!fetch) {
    Log::debug("Already retrying, skipping...");
    co_return;
  }
  std::string failure = "Unknown";
  for (int attempt = 0; attempt < maxAttempts; ++attempt) {
    Log::debug("Performing network request to fetch conversion values. Attempt: {}", attempt + 1);
    Task<std::exception_ptr> fetched = fetchOnce(self->conversionValuesRepository());
    self.reset();
    const std::exception_ptr error = co_await std::move(fetched);
    self = life.lock();
    if (!self) {
      co_return;
    }
    if (!error) {
      if (self->epoch_->during(life.epoch, [&] { self->markFetched(); })) {
        self->health_->noteFetch({});
        self->processPendingEvents(life);
        self.reset();
        co_await checkLockWindowHours(std::move(life));
      }
      co_return;
    }
    failure = textualDescription(error);
    self->health_->noteFetch(failure);
    Log::error("Failed to fetch conversion values: {}. Attempt: {}", failure, attempt + 1);
    if (attempt < maxAttempts - 1) {
      const std::chrono::nanoseconds wait(static_cast<std::int64_t>(delaySeconds * std::exp2(attempt) * 1e9));
      std::shared_ptr<platform::Clock> clock = self->platform_.clock;
      const std::shared_ptr<ActivityCounter> counter = self->activity_;
      self.reset();
      activity.end();  // `drain` does not wait for a fetch that waits
      co_await sleepFor(std::move(clock), wait);
      activity = Activity(counter);
      self = life.lock();
      if (!self) {
        co_return;
      }
    }
  }
  self->epoch_->during(life.epoch, [&] { self->giveUpFetching(maxAttempts, failure); });
}

void QuillmarCore::markFetched() {
  Log::debug("Conversion values fetched and saved from the server.");
  saveLastFetchTimestamp();
  setHasFetchedConversionValues(true);
  isConfigLoaded_.store(true, std::memory_order_relaxed);
  Log::debug("Configuration marked as loaded - app_id should now be available");
}

void QuillmarCore::giveUpFetching(int maxAttempts, const std::string& lastError) {
  {
    const std::lock_guard lock(collaboratorsMutex_);
    isFetching_.reset();
    if (maxAttempts <= 0) {
      isRetriying_ = true;  // stays set deliberately when there was no attempt
    }
  }
  Log::error("Failed to fetch conversion values after {} attempts. Last error: {}", maxAttempts, lastError);
  setHasFetchedConversionValues(MockSwitch::isOn());  // otherwise the next activation tries again at once
}

}  // namespace quillmar
