#include <fmt/format.h>

#include <utility>
#include <variant>

#include "Facade/QuillmarCore.h"
#include "Json/DecimalNumber.h"
#include "Json/MapText.h"
#include "Json/Utf8.h"
#include "Logging/Log.h"
#include "Settings/EnabledFlag.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

std::string description(const EventValue& value) {
  struct Describe {
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(std::int64_t number) const { return fmt::to_string(number); }
    std::string operator()(double number) const { return decimalText(number); }
    std::string operator()(const std::string& text) const { return fmt::format("\"{}\"", text); }
  };
  return std::visit(Describe(), value.storage());
}

/// The host's parameters under their names, with texts in well-formed UTF-8.
std::optional<NamedParameters> namedParameters(std::optional<EventParameters> params) {
  if (!params) {
    return std::nullopt;
  }
  NamedParameters named = parameters(std::move(*params));
  for (auto& [name, value] : named) {
    if (auto* const text = std::get_if<std::string>(&value.storage())) {
      *text = repairedUtf8(std::move(*text));
    }
  }
  return named;
}

}  // namespace

// The switch and the parameters count as they are when the host calls. Only a settings store that has yet to be opened,
// which takes its time, is left to the queue.
void QuillmarCore::sendEvent(std::string event, std::optional<EventParameters> params) {
  counters_.sent.fetch_add(1, std::memory_order_relaxed);
  const std::uint64_t epoch = epoch_->current();  // before the look at consent: what comes after its end must not go on
  if (!mayWork() && holdEvent(epoch, event, params)) {
    return;
  }
  const Life life{weak_from_this(), epoch};
  if (deliversReliably()) {
    keep(std::move(event), std::move(params));
    return;
  }
  if (!userDefaults_->isOpen()) {
    acceptLater(life, std::move(event), std::move(params));
  } else if (std::optional<NamedEvent> accepted = accept(std::move(event), std::move(params))) {
    TaskQueue::MakeTask makeTask = [life, accepted = std::move(*accepted)]() mutable {
      return processEvent(std::move(life), std::move(accepted.name), std::move(accepted.params));
    };
    eventProcessingQueue_->post(std::move(makeTask));
  }
}

void QuillmarCore::acceptLater(const Life& life, std::string event, std::optional<EventParameters> params) {
  if (deliversReliably()) {
    outbox_->put({std::move(event), namedParameters(std::move(params)), platform_.clock->now(), false});
    return;
  }
  TaskQueue::MakeTask makeTask = [life, event = std::move(event), params = std::move(params)]() mutable {
    return acceptEvent(std::move(life), std::move(event), std::move(params));
  };
  eventProcessingQueue_->post(std::move(makeTask));
}

std::optional<QuillmarCore::NamedEvent> QuillmarCore::accept(std::string event, std::optional<EventParameters> params) {
  NamedEvent named{repairedUtf8(std::move(event)), namedParameters(std::move(params))};
  return isAccepted(named.name, named.params) ? std::optional(std::move(named)) : std::nullopt;
}

bool QuillmarCore::isAccepted(const std::string& name, const std::optional<NamedParameters>& params) {
  if (!isSDKEnabled(*userDefaults_, "SDK enabled status")) {
    drop(name, traceOf(name));
    return false;
  }
  if (Log::passes(LogLevel::debug)) {
    const NamedParameters none;
    Log::debug("Sending event: {} with params: {}", name, mapText(params ? *params : none, description));
  }
  return true;
}

bool QuillmarCore::isSwitchedOff() const {
  return options().strictSwitch && !isSDKEnabled(*userDefaults_);
}

void QuillmarCore::skip(const std::string& name, const Trace& trace) const {
  Log::debug("SDK is disabled by server configuration, skipping event: {}", name);
  if (trace) {
    trace->end(Decision::Outcome::switchedOff);
  }
}

void QuillmarCore::drop(const std::string& name, const Trace& trace) {
  counters_.dropped.fetch_add(1, std::memory_order_relaxed);
  skip(name, trace);
}

// To the outbox, which writes it on our own thread before anything else happens to it.
void QuillmarCore::keep(std::string event, std::optional<EventParameters> params) {
  Intake::Event named{repairedUtf8(std::move(event)), namedParameters(std::move(params)), platform_.clock->now(),
                      userDefaults_->isOpen()};
  if (!named.accepted || isAccepted(named.name, named.parameters)) {
    outbox_->put(named);
  }
}

Task<void> QuillmarCore::acceptEvent(Life life, std::string event, std::optional<EventParameters> params) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  std::optional<NamedEvent> accepted = self ? self->accept(std::move(event), std::move(params)) : std::nullopt;
  self.reset();
  if (accepted) {
    co_await processEvent(std::move(life), std::move(accepted->name), std::move(accepted->params));
  }
}

bool QuillmarCore::isConfigurationReady() const {
  const bool isConfigLoaded = isConfigLoaded_.load(std::memory_order_relaxed);
  const bool hasAppId = userDefaults_->string(Config::serverAppId).has_value();
  if (isConfigLoaded && hasAppId) {
    return true;
  }
  Log::debug("Configuration not ready - isConfigLoaded: {}, hasAppId: {}", isConfigLoaded, hasAppId);
  return false;
}

void QuillmarCore::deferEvent(const Life& life, std::string name, std::optional<NamedParameters> params) {
  Log::debug("Event processing deferred - adding to pending queue: {}", name);
  NamedEvent event{std::move(name), std::move(params)};
  postInLife(*pendingEventsQueue_, life, [life, event = std::move(event)](QuillmarCore& self) mutable {
    self.pendingEvents_.push_back(std::move(event));
    self.pendingEventCount_.store(self.pendingEvents_.size(), std::memory_order_relaxed);
    Log::debug("Event added to pending queue. Total pending: {}", self.pendingEvents_.size());
    // The configuration may have come between the event's look at it and now; then nobody else would replay it.
    if (self.isConfigLoaded_.load(std::memory_order_relaxed) && self.userDefaults_->string(Config::serverAppId)) {
      self.processPendingEvents(life);
    }
  });
}

void QuillmarCore::processPendingEvents(const Life& life) {
  wakeOutbox();
  postInLife(*pendingEventsQueue_, life, [life](QuillmarCore& self) {
    std::deque<NamedEvent> taken;
    taken.swap(self.pendingEvents_);
    self.pendingEventCount_.store(0, std::memory_order_relaxed);
    Log::debug("Processing {} pending events", taken.size());
    while (!taken.empty()) {
      TaskQueue::MakeTask makeTask = [life, event = std::move(taken.front())]() mutable {
        return replayEvent(life, std::move(event));
      };
      taken.pop_front();
      self.eventProcessingQueue_->post(std::move(makeTask));
    }
  });
}

Task<void> QuillmarCore::replayEvent(Life life, NamedEvent event) {
  if (life.lock()) {
    Log::debug("Processing deferred event: {}", event.name);
    co_await processEvent(std::move(life), std::move(event.name), std::move(event.params));
  }
}

void QuillmarCore::emptyPendingEvents() {
  postInLife(*pendingEventsQueue_, thisLife(), [](QuillmarCore& self) {
    self.pendingEvents_.clear();
    self.pendingEventCount_.store(0, std::memory_order_relaxed);
  });
}

std::size_t QuillmarCore::pendingEventCount() const {
  return pendingEventCount_.load(std::memory_order_relaxed);
}

}  // namespace quillmar
