#include <utility>

#include "Conversion/LastWindowValue.h"
#include "Conversion/LowestRanked.h"
#include "Conversion/PostbackWindows.h"
#include "Facade/QuillmarCore.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Settings/Calendar.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

/// How often in a row the configuration may be missing for events of one name.
constexpr std::int64_t maxConfigurationAttempts = 2;

/// An event locks its window when that is what the configuration wants at "high" and the value itself says "high".
bool locksWindow(const ConversionValues& configuration, const ConversionValues::ConversionValue& value, Window window) {
  const auto lock = configuration.lockWindows.find(rawValue(window));
  const auto& coarse = value.windowValue(window)->coarseValue;
  return lock != configuration.lockWindows.end() && lock->second.type == ConversionValues::LockWindowType::high &&
         coarse && coarse->value == CoarseValue::high;
}

}  // namespace

std::optional<Window> QuillmarCore::getCurrentWindow() const {
  const auto firstRun = userDefaults_->date(Config::firstRunDateKey);
  if (!firstRun) {
    return Window::window0;
  }
  const std::int64_t day = Calendar(*platform_.clock).wholeDays(*firstRun, platform_.clock->now());
  return windowOfDay(day);
}

Task<void> QuillmarCore::processEvent(Life life, std::string name, std::optional<NamedParameters> params) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  if (!self) {
    co_return;
  }
  if (SharedState::instance().getVerificationKeyInvalid()) {
    Log::error("Event processing skipped: verification key is considered invalid");
    co_return;
  }
  if (!self->isConfigurationReady()) {
    self->deferEvent(life, std::move(name), std::move(params));
    co_return;
  }
  self.reset();
  if (!co_await logToService(life, name)) {
    co_return;
  }
  self = life.lock();
  if (!self) {
    co_return;
  }
  const std::optional<Window> window = self->getCurrentWindow();
  if (!window) {
    Log::info("No event sent. The event window has expired.");
    co_return;
  }
  const std::shared_ptr<const ConversionValues> configuration = self->configurationFor(life, name);
  if (!configuration) {
    co_return;
  }
  Task<void> tracking = self->trackingQueue_->track(name, std::move(params), life.epoch);
  self.reset();
  co_await std::move(tracking);
  self = life.lock();
  if (!self) {
    co_return;
  }
  const auto completed = self->eventTracker_->findCompletedConversionValues(*configuration, *window);
  if (completed.empty()) {
    Log::debug("No completed conversion values found for event: {}", name);
    co_return;
  }
  const ConversionValues::ConversionValue* const chosen = lowestRanked(completed, *window);
  const bool forceLockWindow = locksWindow(*configuration, *chosen, *window);
  ConversionValues::ConversionValue value = *chosen;
  self.reset();
  co_await update(std::move(life), std::move(value), *window, forceLockWindow);
}

// True when the event goes on: it was logged, or failed without being one failure too many.
Task<bool> QuillmarCore::logToService(Life life, std::string name) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  const auto repository = self ? self->eventServerLogRepository() : nullptr;
  if (!repository) {
    co_return self != nullptr;
  }
  self.reset();
  EventLogResult result;
  std::function<void(EventServerLogRepositoryProtocol::Completion)> start =
      [repository, name = std::move(name)](EventServerLogRepositoryProtocol::Completion done) {
        repository->logEvent(name, std::move(done));
      };
  try {
    result = co_await awaitCallback<EventLogResult>(std::move(start));
  } catch (...) {
    result.failure = std::current_exception();
  }
  self = life.lock();
  if (!self) {
    co_return false;
  }
  if (!result.failure) {
    if (result.accepted) {
      SharedState::instance().resetConsecutiveAPIFailures();
      self->counters_.logged.fetch_add(1, std::memory_order_relaxed);
    }
    co_return true;
  }
  self->counters_.failed.fetch_add(1, std::memory_order_relaxed);
  const std::string line = "Failed to log event to server: " + textualDescription(result.failure);
  Log::error(line);
  self->print(line);
  const std::int64_t failures = SharedState::instance().incrementConsecutiveAPIFailures();
  if (failures >= Quillmar::maxConsecutiveFailures) {
    self->invalidateVerificationKey(failures);
    co_return false;
  }
  co_return true;
}

// The configuration for an event of that name, or null when the event stops here.
std::shared_ptr<const ConversionValues> QuillmarCore::configurationFor(const Life& life, const std::string& name) {
  SharedState& shared = SharedState::instance();
  const std::int64_t attempts = shared.getEventRetryCount(name);
  if (attempts >= maxConfigurationAttempts) {
    Log::error("Maximum number of attempts reached for event: {}. Aborting processing.", name);
    shared.setEventRetryCount(0, name);
    return nullptr;
  }
  try {
    if (const auto repository = conversionValuesRepository()) {
      auto configuration = repository->fetchAllConversionValues();
      shared.setEventRetryCount(0, name);
      return configuration;
    }
  } catch (...) {
    // Told below, like a missing repository.
  }
  shared.setEventRetryCount(attempts + 1, name);
  Log::debug("Could not obtain conversion values. Attempt {} for event: {}", attempts + 1, name);
  const std::int64_t failures = shared.getConsecutiveAPIFailures();
  if (failures >= Quillmar::maxConsecutiveFailures) {
    invalidateVerificationKey(failures);
    return nullptr;
  }
  if (attempts == 0) {
    Log::debug("First attempt to get conversion values failed, triggering fetch...");
    fetchAndSaveConversionValues(life);
  }
  // Not parked: the next event of the same name is the next attempt.
  Log::debug("Event processing deferred until conversion values are available: {}", name);
  return nullptr;
}

void QuillmarCore::invalidateVerificationKey(std::int64_t failures) {
  SharedState::instance().setVerificationKeyInvalid(true);
  Log::error("Verification key considered invalid after {} consecutive failures", failures);
}

namespace {

Task<void> sendValue(std::shared_ptr<ConversionTrackingManagerProtocol> manager,
                     ConversionValues::ConversionValue value, Window window, bool forceLockWindow) {
  manager->send(value, window, forceLockWindow);
  co_return;
}

}  // namespace

Task<void> QuillmarCore::update(Life life, ConversionValues::ConversionValue value, Window window,
                                bool forceLockWindow) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  auto manager = self ? self->conversionTrackingManager() : nullptr;
  if (!manager) {
    co_return;
  }
  ConversionValues::ConversionValue resolved =
      self->conversionValueResolver_->resolveConversionValue(std::move(value), window);
  std::shared_ptr<platform::Executor> mainExecutor = self->mainExecutor_;
  self.reset();
  Task<void> send = sendValue(std::move(manager), std::move(resolved), window, forceLockWindow);
  co_await runOn(std::move(mainExecutor), std::move(send));
}

Task<void> QuillmarCore::checkLockWindowHours(Life life) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  const std::optional<Window> window = self ? self->getCurrentWindow() : std::nullopt;
  const auto repository = self ? self->conversionValuesRepository() : nullptr;
  if (!window || !repository) {
    co_return;
  }
  std::optional<std::int64_t> hours;
  try {
    const auto configuration = repository->fetchAllConversionValues();
    const auto lock = configuration->lockWindows.find(rawValue(*window));
    if (lock != configuration->lockWindows.end() && lock->second.type == ConversionValues::LockWindowType::time) {
      hours = lock->second.value;
    }
  } catch (...) {
    co_return;
  }
  const auto firstRun = self->userDefaults_->date(Config::firstRunDateKey);
  if (!hours || !firstRun) {
    co_return;
  }
  const platform::Clock& clock = *self->platform_.clock;
  const auto start = Calendar(clock).addingDays(*firstRun, windowStart(*window));
  if (Calendar::wholeHours(start, clock.now()) < *hours) {
    co_return;
  }
  const std::optional<LastWindowValue> last = readLastWindowValue(*self->userDefaults_);
  if (!last) {
    co_return;
  }
  ConversionValues::WindowValue windowValue;
  windowValue.fineValue = {last->fineValue, {}};
  if (last->coarseValue) {
    windowValue.coarseValue = {*last->coarseValue, {}};
  }
  ConversionValues::ConversionValue locked;
  locked.key = last->key;
  locked.windows.emplace(rawValue(*window), std::move(windowValue));
  self.reset();
  co_await update(std::move(life), std::move(locked), *window, true);
}

}  // namespace quillmar
