#include <algorithm>
#include <iterator>
#include <utility>

#include "Conversion/ConversionTrackingManager.h"
#include "Conversion/LastWindowValue.h"
#include "Conversion/LowestRanked.h"
#include "Conversion/PostbackWindows.h"
#include "Conversion/Withholding.h"
#include "Facade/QuillmarCore.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Persistence/ConversionValuesRepository.h"
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

std::shared_ptr<const ConversionValues> documentOf(const ConversionValuesRepositoryProtocol& repository) {
  auto document = repository.fetchAllConversionValues();
  if (dynamic_cast<const ConversionValuesRepository*>(&repository) == nullptr) {
    // A host may change its document in place. With an owner of its own it is another one each time, which is not
    // followed.
    const auto* const content = document.get();
    document = {std::make_shared<decltype(document)>(std::move(document)), content};
  }
  return document;
}

// What the record of an event is told; it may be null.

void end(const std::shared_ptr<DecisionTrace>& trace, Decision::Outcome outcome) noexcept {
  if (trace) {
    trace->end(outcome);
  }
}

void recordChoice(Decision& record, std::vector<const ConversionValues::ConversionValue*> completed,
                  const ConversionValues::ConversionValue& chosen, Window window, bool locks) {
  while (!completed.empty()) {
    const auto* const lowest = lowestRanked(completed, window);
    record.ranking.push_back(lowest->key);
    std::erase(completed, lowest);
  }
  const auto& [fine, coarse] = *chosen.windowValue(window);
  Decision::Choice& choice = record.choice.emplace();
  choice.key = chosen.key;
  choice.fineValue = fine ? std::optional(fine->value) : std::nullopt;
  choice.coarseValue = coarse ? std::optional(coarse->value) : std::nullopt;
  choice.locksWindow = locks;
  choice.lockReason = locks ? "the window locks at high" : "";
}

void recordFilledIn(Decision::Choice& choice, const ConversionValues::WindowValue& resolved, std::string lastKey) {
  choice.fineFilledIn = resolved.fineValue && !choice.fineValue;
  choice.coarseFilledIn = resolved.coarseValue && !choice.coarseValue;
  if (choice.fineFilledIn) {
    choice.fineValue = resolved.fineValue->value;
  }
  if (choice.coarseFilledIn) {
    choice.coarseValue = resolved.coarseValue->value;
  }
  if (choice.fineFilledIn || choice.coarseFilledIn) {
    choice.filledInFrom = std::move(lastKey);
  }
}

}  // namespace

std::optional<Window> QuillmarCore::getCurrentWindow() const {
  const auto firstRun = userDefaults_->date(Config::firstRunDateKey);
  if (!firstRun) {
    return Window::window0;
  }
  const auto now = platform_.clock->now();
  return options().platformWindows ? windowAt(Calendar::wholeHours(*firstRun, now), platformWindowHours)
                                   : windowAt(Calendar(*platform_.clock).wholeDays(*firstRun, now));
}

platform::Clock::TimePoint QuillmarCore::beginOf(Window window, platform::Clock::TimePoint firstRun) const {
  return options().platformWindows ? firstRun + std::chrono::hours(windowStart(window, platformWindowHours))
                                   : Calendar(*platform_.clock).addingDays(firstRun, windowStart(window));
}

Task<void> QuillmarCore::processEvent(Life life, NamedEvent event) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  if (!self) {
    co_return;
  }
  event.passage.setUnderWay(true);
  const Trace trace = self->traceOf(event.name);
  if (self->isSwitchedOff()) {  // since it was accepted
    self->drop(event.name, trace);
    event.passage.end(EventEnd::switchedOff);
    co_return;
  }
  if (SharedState::instance().getVerificationKeyInvalid()) {
    Log::error("Event processing skipped: verification key is considered invalid");
    event.passage.end(EventEnd::keyInvalid);
    end(trace, Decision::Outcome::keyInvalid);
    co_return;
  }
  if (!self->isConfigurationReady()) {
    self->deferEvent(life, std::move(event));
    end(trace, Decision::Outcome::parked);
    co_return;
  }
  self.reset();
  const std::string name = std::move(event.name);
  Task<bool> logging = logToService(life, name, std::move(event.passage), trace);
  if (!co_await std::move(logging)) {
    co_return;
  }
  self = life.lock();
  if (!self) {
    co_return;
  }
  if (self->isSwitchedOff()) {
    self->skip(name, trace);
    co_return;
  }
  const std::optional<Window> window = self->getCurrentWindow();
  if (!window) {
    Log::info("No event sent. The event window has expired.");
    end(trace, Decision::Outcome::windowOver);
    co_return;
  }
  if (trace) {
    trace->record.window = window;
  }
  const std::shared_ptr<const ConversionValues> configuration = self->configurationFor(life, name);
  if (!configuration) {
    end(trace, SharedState::instance().getVerificationKeyInvalid() ? Decision::Outcome::keyInvalid
                                                                   : Decision::Outcome::noConfiguration);
    co_return;
  }
  Task<void> tracking = self->trackingQueue_->track(name, event.takeNamedParams(), life.epoch);
  self.reset();
  co_await std::move(tracking);
  self = life.lock();
  if (!self) {
    co_return;
  }
  std::optional<Chosen> chosen = self->choose(name, configuration, *window, trace);
  self.reset();
  if (chosen) {
    co_await update(std::move(life), std::move(chosen->value), *window, chosen->forceLockWindow, trace);
  }
}

EventTracker::Matching QuillmarCore::matchingIn(Window window) const {
  const QuillmarOptions options = this->options();
  EventTracker::Matching matching;
  matching.onlyCompleteHalves = options.onlyCompleteHalves;
  matching.singleBound = options.honourSingleBounds ? SingleBound::honoured : SingleBound::ignored;
  if (options.currentWindowOnly && window != Window::window0) {  // nothing comes before the first
    const auto firstRun = userDefaults_->date(Config::firstRunDateKey);
    matching.since = firstRun ? std::optional(beginOf(window, *firstRun)) : std::nullopt;
  }
  return matching;
}

std::optional<QuillmarCore::Chosen> QuillmarCore::choose(const std::string& name,
                                                         const std::shared_ptr<const ConversionValues>& configuration,
                                                         Window window, const Trace& trace) const {
  std::vector<Decision::Rule>* const rules = trace ? &trace->record.rules : nullptr;
  const EventTracker::Matching matching = matchingIn(window);
  Rules completed;
  std::vector<ConversionValues::ConversionValue> copies;
  if (!matching.isUsual()) {
    copies = eventTracker_->findCompletedConversionValues(*configuration, window, matching, rules);
    std::ranges::transform(copies, std::back_inserter(completed), [](const auto& copy) { return &copy; });
  } else if (trace) {
    completed = eventTracker_->findCompletedConversionValues(*configuration, window, rules);
  } else {
    completed = eventTracker_->followCompletedConversionValues(configuration, window);
  }
  if (completed.empty()) {
    Log::debug("No completed conversion values found for event: {}", name);
    end(trace, Decision::Outcome::nothingComplete);
    return std::nullopt;
  }
  const ConversionValues::ConversionValue* const lowest = lowestRanked(completed, window);
  const bool forceLockWindow = locksWindow(*configuration, *lowest, window);
  if (trace) {
    recordChoice(trace->record, completed, *lowest, window, forceLockWindow);
  }
  return Chosen{*lowest, forceLockWindow};
}

// The rest of the pipeline for events that the outbox has put into the history.
Task<void> QuillmarCore::decideAboutKept(Life life, std::string name,
                                         std::shared_ptr<const ConversionValues> configuration, Window window) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  if (!self) {
    co_return;
  }
  const Trace trace = self->traceOf(name);
  if (trace) {
    trace->record.window = window;
  }
  std::optional<Chosen> chosen = self->choose(name, configuration, window, trace);
  self.reset();
  if (chosen) {
    co_await update(std::move(life), std::move(chosen->value), window, chosen->forceLockWindow, trace);
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
Task<bool> QuillmarCore::logToService(Life life, std::string name, HealthRecord::Passage passage, Trace trace) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  const auto repository = self ? self->eventServerLogRepository() : nullptr;
  if (!repository) {
    if (self) {
      passage.end(EventEnd::notAsked);
    }
    co_return self != nullptr;
  }
  self.reset();
  LogCall call = [repository, name](EventServerLogRepositoryProtocol::Completion done) {
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
      self->health_->noteLogged(name);
    }
    passage.end(result.accepted ? EventEnd::logged : EventEnd::switchedOff);
    co_return true;
  }
  self->noteFailure(result);
  passage.end(EventEnd::failed);
  const std::int64_t failures = SharedState::instance().incrementConsecutiveAPIFailures();
  if (failures >= Quillmar::maxConsecutiveFailures) {
    self->invalidateVerificationKey(failures);
    end(trace, Decision::Outcome::keyInvalid);
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
    return repository ? documentOf(*repository) : nullptr;
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
      auto configuration = documentOf(*repository);
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
  health_->noteChange();
  Log::error("Verification key considered invalid after {} consecutive failures", failures);
}

namespace {

Task<void> sendValue(std::shared_ptr<ConversionTrackingManagerProtocol> manager,
                     ConversionValues::ConversionValue value, Window window, bool forceLockWindow,
                     QuillmarOptions options, std::shared_ptr<DecisionTrace> trace, Epoch::Term term) {
  if (term.isOver()) {
    co_return;
  }
  // A manager of the host's knows no options, and does not tell what it calls.
  if (auto* const own = dynamic_cast<ConversionTrackingManager*>(manager.get())) {
    own->send(value, window, forceLockWindow, options, std::move(trace), std::move(term));
  } else {
    end(trace, Decision::Outcome::sent);
    manager->send(value, window, forceLockWindow);
  }
  co_return;
}

}  // namespace

Task<void> QuillmarCore::update(Life life, ConversionValues::ConversionValue value, Window window, bool forceLockWindow,
                                Trace trace) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  Epoch::Term term = self ? self->consent_->term() : Epoch::Term();
  if (!life.lock()) {  // looked at after the term is taken: the end of consent ends this life before it ends terms
    co_return;
  }
  if (self->isSwitchedOff()) {
    Log::debug("SDK is disabled by server configuration, skipping update: {}", value.key);
    end(trace, Decision::Outcome::switchedOff);
    co_return;
  }
  end(trace, Decision::Outcome::nothingCalled);
  auto manager = self->conversionTrackingManager();
  if (!manager) {
    co_return;
  }
  std::string lastKey;
  ConversionValues::ConversionValue resolved =
      self->conversionValueResolver_->resolveConversionValue(std::move(value), window, trace ? &lastKey : nullptr);
  if (trace) {
    recordFilledIn(*trace->record.choice, *resolved.windowValue(window), std::move(lastKey));
  }
  const QuillmarOptions options = self->options();
  if (comparesWithLast(options)) {
    const auto last = readLastWindowValue(*self->userDefaults_);
    if (const auto why = whyWithheld(resolved, window, forceLockWindow, last, options)) {
      Log::debug("Not sent, after the last value of the window: {}", resolved.key);
      end(trace, *why);
      co_return;
    }
  }
  std::shared_ptr<platform::Executor> mainExecutor = self->mainExecutor_;
  self.reset();
  // A reset leaves alone what the platform is told; the end of consent does not.
  Task<void> send = sendValue(std::move(manager), std::move(resolved), window, forceLockWindow, options,
                              std::move(trace), std::move(term));
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
  if (Calendar::wholeHours(self->beginOf(*window, *firstRun), self->platform_.clock->now()) < *hours) {
    co_return;
  }
  const std::optional<LastWindowValue> last = readLastWindowValue(*self->userDefaults_);
  if (!last) {
    co_return;
  }
  ConversionValues::ConversionValue locked = last->conversionValue(*window);
  self.reset();
  co_await update(std::move(life), std::move(locked), *window, true, nullptr);
}

}  // namespace quillmar
