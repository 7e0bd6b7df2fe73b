#include <algorithm>
#include <utility>

#include "Conversion/LastWindowValue.h"
#include "Facade/QuillmarCore.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Settings/Calendar.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

/// How often in a row the configuration may be missing for events of one name.
constexpr std::int64_t maxConfigurationAttempts = 2;

/// The days since the first run at which the windows begin.
constexpr std::int64_t windowStart(Window window) noexcept {
  switch (window) {
    case Window::window1:
      return 3;
    case Window::window2:
      return 8;
    default:
      return 0;
  }
}
constexpr std::int64_t lastDay = 35;

using Values = std::vector<const ConversionValues::ConversionValue*>;

/// The first of the completed values that none ranks below. The lowest wins deliberately, not the highest.
///
/// Values with and without a fine value rank in no consistent order: each may have one below it. Then it is what a
/// stable sort by insertion puts first.
const ConversionValues::ConversionValue* lowestRanked(const Values& completed, Window window) {
  const auto isBelow = [window](const auto* a, const auto* b) { return a->compareWindowValue(*b, window) < 0; };
  // In a consistent order this is the one. It is asked first, so that all others are done with at once.
  const auto* const likely = *std::min_element(completed.begin(), completed.end(), isBelow);
  for (const auto* const value : completed) {
    const auto isBelowValue = [&](const auto* other) { return isBelow(other, value); };
    if (!isBelowValue(likely) && std::none_of(completed.begin(), completed.end(), isBelowValue)) {
      return value;
    }
  }
  Values sorted;
  for (const auto* const value : completed) {
    const auto last =
        std::find_if_not(sorted.rbegin(), sorted.rend(), [&](const auto* other) { return isBelow(value, other); });
    sorted.insert(last.base(), value);
  }
  return sorted.front();
}

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
  if (day < 0 || day > lastDay) {
    return std::nullopt;
  }
  if (day >= windowStart(Window::window2)) {
    return Window::window2;
  }
  return day >= windowStart(Window::window1) ? Window::window1 : Window::window0;
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
  std::optional<Decision> decision = self->decide(name, *configuration, *window);
  self.reset();
  if (decision) {
    co_await update(std::move(life), std::move(decision->value), *window, decision->forceLockWindow);
  }
}

std::optional<QuillmarCore::Decision> QuillmarCore::decide(const std::string& name,
                                                           const ConversionValues& configuration, Window window) const {
  const auto completed = eventTracker_->findCompletedConversionValues(configuration, window);
  if (completed.empty()) {
    Log::debug("No completed conversion values found for event: {}", name);
    return std::nullopt;
  }
  const ConversionValues::ConversionValue* const chosen = lowestRanked(completed, window);
  return Decision{*chosen, locksWindow(configuration, *chosen, window)};
}

// The rest of the pipeline for events that the outbox has put into the history.
Task<void> QuillmarCore::decideAboutKept(Life life, std::string name,
                                         std::shared_ptr<const ConversionValues> configuration, Window window) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  std::optional<Decision> decision = self ? self->decide(name, *configuration, window) : std::nullopt;
  self.reset();
  if (decision) {
    co_await update(std::move(life), std::move(decision->value), window, decision->forceLockWindow);
  }
}

namespace {

using LogCall = std::function<void(EventServerLogRepositoryProtocol::Completion)>;

Task<EventLogResult> resultOfLogging(LogCall call) {
  EventLogResult result;
  try {
    result = co_await awaitCallback<EventLogResult>(std::move(call));
  } catch (...) {
    result.failure = std::current_exception();
  }
  co_return result;
}

}  // namespace

// True when the event goes on: it was logged, or failed without being one failure too many.
Task<bool> QuillmarCore::logToService(Life life, std::string name) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  const auto repository = self ? self->eventServerLogRepository() : nullptr;
  if (!repository) {
    co_return self != nullptr;
  }
  self.reset();
  LogCall call = [repository, name = std::move(name)](EventServerLogRepositoryProtocol::Completion done) {
    repository->logEvent(name, std::move(done));
  };
  const EventLogResult result = co_await resultOfLogging(std::move(call));
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
  self->noteFailure(result);
  const std::int64_t failures = SharedState::instance().incrementConsecutiveAPIFailures();
  if (failures >= Quillmar::maxConsecutiveFailures) {
    self->invalidateVerificationKey(failures);
    co_return false;
  }
  co_return true;
}

void QuillmarCore::noteFailure(const EventLogResult& result) {
  counters_.failed.fetch_add(1, std::memory_order_relaxed);
  const std::string line = "Failed to log event to server: " + textualDescription(result.failure);
  Log::error(line);
  print(line);
}

// One attempt to log an event of the outbox. Only a service that does not know the key counts against it.
Task<void> QuillmarCore::deliver(Life life, OutboxRecord record, OutboxUserProtocol::Done done,
                                 [[maybe_unused]] Activity activity) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  const auto repository = self ? self->eventServerLogRepository() : nullptr;
  if (!repository) {
    co_return;
  }
  self.reset();
  LogCall call = [repository, record = std::move(record)](EventServerLogRepositoryProtocol::Completion completion) {
    repository->logEventAs(record.event.name, record.id, std::move(completion));
  };
  const EventLogResult result = co_await resultOfLogging(std::move(call));
  self = life.lock();
  if (!self) {
    co_return;
  }
  SendResult outcome;
  if (result.failure) {
    outcome = resultOf(result.cause ? result.cause : result.failure, self->platform_.clock->now());
    self->noteFailure(result);
  } else if (!result.accepted) {
    outcome.verdict = SendResult::Verdict::notAsked;
  }
  SharedState& shared = SharedState::instance();
  if (outcome.verdict == SendResult::Verdict::accepted) {
    shared.resetConsecutiveAPIFailures();
    self->counters_.logged.fetch_add(1, std::memory_order_relaxed);
  } else if (outcome.verdict == SendResult::Verdict::unauthorized) {
    const std::int64_t failures = shared.incrementConsecutiveAPIFailures();
    if (failures >= Quillmar::maxConsecutiveFailures) {
      self->invalidateVerificationKey(failures);
    }
  }
  done(std::move(outcome));
}

std::shared_ptr<const ConversionValues> QuillmarCore::storedConfiguration() const {
  try {
    const auto repository = conversionValuesRepository();
    return repository ? repository->fetchAllConversionValues() : nullptr;
  } catch (...) {
    return nullptr;  // told by the caller
  }
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
