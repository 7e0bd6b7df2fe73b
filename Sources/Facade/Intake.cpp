#include <fmt/format.h>

#include <utility>
#include <variant>

#include "Facade/QuillmarCore.h"
#include "Json/DecimalNumber.h"
#include "Json/JsonWriter.h"
#include "Json/MapText.h"
#include "Json/Utf8.h"
#include "Logging/Log.h"
#include "Settings/EnabledFlag.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

std::string valueText(const EventValue& value) {
  struct Describe {
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(std::int64_t number) const { return fmt::to_string(number); }
    std::string operator()(double number) const { return decimalText(number); }
    std::string operator()(const std::string& text) const { return fmt::format("\"{}\"", text); }
  };
  return std::visit(Describe(), value.storage());
}

NamedParameters withRepairedTexts(NamedParameters named) {
  for (auto& [name, value] : named) {
    if (auto* const text = std::get_if<std::string>(&value.storage())) {
      *text = repairedUtf8(std::move(*text));
    }
  }
  return named;
}

/// What the host gave, as JSON.
std::size_t bytesOf(const std::string& name, const std::optional<NamedParameters>& params) {
  JsonWriter writer;
  writer.beginObject().member("event_name", name);
  for (const auto& [param, value] : params.value_or(NamedParameters())) {
    const auto* const text = std::get_if<std::string>(&value.storage());
    writer.member(param, text != nullptr ? *text : valueText(value));
  }
  return writer.endObject().take().size();
}

}  // namespace

std::optional<NamedParameters> QuillmarCore::NamedEvent::namedParams() const {
  return params ? std::optional(withRepairedTexts(parameters(*params))) : std::nullopt;
}

std::optional<NamedParameters> QuillmarCore::NamedEvent::takeNamedParams() {
  return params ? std::optional(withRepairedTexts(parameters(std::move(*params)))) : std::nullopt;
}

// The switch and the parameters count as they are when the host calls. Only a settings store that has yet to be opened,
// which takes its time, is left to the queue.
void QuillmarCore::sendEvent(std::string event, std::optional<EventParameters> params) {
  const std::uint64_t epoch = epoch_->current();  // before the look at consent: what comes after its end must not go on
  HealthRecord::Passage passage = health_->begin();
  NamedEvent named{repairedUtf8(std::move(event)),
                   params ? std::make_shared<EventParameters>(std::move(*params)) : nullptr, std::move(passage)};
  const QuillmarLimits limits = isLimited_.load(std::memory_order_relaxed) ? options().limits : QuillmarLimits();
  if (limits.eventBytes > 0 && bytesOf(named.name, named.namedParams()) > limits.eventBytes) {
    refuse(named.passage, EventEnd::tooLarge, limits.eventBytes);
    return;
  }
  if (!mayWork() && holdEvent(epoch, named)) {
    return;
  }
  const bool isOpen = userDefaults_->isOpen();
  if (isOpen && !isAccepted(named)) {
    named.passage.end(EventEnd::switchedOff);
    return;
  }
  enter({weak_from_this(), epoch}, std::move(named), isOpen, limits);
}

void QuillmarCore::enter(const Life& life, NamedEvent event, bool isAccepted, const QuillmarLimits& limits) {
  if (!deliversReliably()) {
    post({life, std::move(event), isAccepted ? processEvent : acceptEvent}, limits);
  } else if (!outbox_->put({std::move(event.name), event.takeNamedParams(), platform_.clock->now(), isAccepted},
                           event.passage, limits)) {
    refuse(event.passage, EventEnd::queuedLimit, limits.queuedEvents);
  }
}

void QuillmarCore::post(Start start, const QuillmarLimits& limits) {
  if (limits.queuedEvents == 0) {
    eventProcessingQueue_->post(std::move(start));
    return;
  }
  TaskQueue::MakeTask dropped = eventProcessingQueue_->postWithin(
      limits.queuedEvents, limits.drop == QuillmarLimits::Drop::oldest, std::move(start));
  if (auto* const event = dropped.target<Start>()) {
    refuse(event->event.passage, EventEnd::queuedLimit, limits.queuedEvents);
  }
}

void QuillmarCore::refuse(HealthRecord::Passage& passage, EventEnd how, std::size_t limit) {
  constexpr std::chrono::minutes burst{1};
  passage.end(how);
  const auto now = platform_.clock->now();
  {
    const std::lock_guard lock(collaboratorsMutex_);
    const auto [said, isFirst] = saidAt_.try_emplace(how, now);
    if (!isFirst && now - said->second < burst && now >= said->second) {
      return;
    }
    said->second = now;
  }
  if (how == EventEnd::tooLarge) {
    Log::error("Quillmar - Refused an event of more than {} bytes; for a minute, others are only counted", limit);
  } else {
    Log::error("Quillmar - Dropped an event: more than {} {}; for a minute, others are only counted", limit,
               how == EventEnd::parkedLimit ? "wait for the configuration" : "wait for their turn");
  }
}

bool QuillmarCore::isAccepted(const NamedEvent& event) {
  return isAccepted(event.name, [&event] { return event.namedParams(); });
}

bool QuillmarCore::isAccepted(const std::string& name, const std::function<std::optional<NamedParameters>()>& params) {
  if (!isSDKEnabled(*userDefaults_, "SDK enabled status")) {
    drop(name, traceOf(name));
    return false;
  }
  if (Log::passes(LogLevel::debug)) {
    Log::debug("Sending event: {} with params: {}", name, mapText(params().value_or(NamedParameters()), valueText));
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

Task<void> QuillmarCore::acceptEvent(Life life, NamedEvent event) {
  std::shared_ptr<QuillmarCore> self = life.lock();
  if (!self) {
    co_return;
  }
  if (!self->isAccepted(event)) {
    event.passage.end(EventEnd::switchedOff);
    co_return;
  }
  self.reset();
  co_await processEvent(std::move(life), std::move(event));
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

void QuillmarCore::deferEvent(const Life& life, NamedEvent event) {
  Log::debug("Event processing deferred - adding to pending queue: {}", event.name);
  event.passage.setUnderWay(false);
  postInLife(*pendingEventsQueue_, life, [life, event = std::move(event)](QuillmarCore& self) mutable {
    self.park(std::move(event));
    self.pendingEventCount_.store(self.pendingEvents_.size(), std::memory_order_relaxed);
    Log::debug("Event added to pending queue. Total pending: {}", self.pendingEvents_.size());
    // The configuration may have come between the event's look at it and now; then nobody else would replay it.
    if (self.isConfigLoaded_.load(std::memory_order_relaxed) && self.userDefaults_->string(Config::serverAppId)) {
      self.processPendingEvents(life);
    }
  });
}

void QuillmarCore::park(NamedEvent event) {
  const QuillmarLimits limits = options().limits;
  pendingEvents_.push_back(std::move(event));
  if (limits.parkedEvents > 0 && pendingEvents_.size() > limits.parkedEvents) {
    const bool dropsOldest = limits.drop == QuillmarLimits::Drop::oldest;
    NamedEvent& dropped = dropsOldest ? pendingEvents_.front() : pendingEvents_.back();
    refuse(dropped.passage, EventEnd::parkedLimit, limits.parkedEvents);
    dropsOldest ? pendingEvents_.pop_front() : pendingEvents_.pop_back();
  }
}

void QuillmarCore::processPendingEvents(const Life& life) {
  wakeOutbox();
  postInLife(*pendingEventsQueue_, life, [life](QuillmarCore& self) {
    std::deque<NamedEvent> taken;
    taken.swap(self.pendingEvents_);
    self.pendingEventCount_.store(0, std::memory_order_relaxed);
    Log::debug("Processing {} pending events", taken.size());
    while (!taken.empty()) {
      Start start{life, std::move(taken.front()), replayEvent};
      taken.pop_front();
      self.eventProcessingQueue_->post(std::move(start));
    }
  });
}

Task<void> QuillmarCore::replayEvent(Life life, NamedEvent event) {
  if (life.lock()) {
    Log::debug("Processing deferred event: {}", event.name);
    co_await processEvent(std::move(life), std::move(event));
  }
}

void QuillmarCore::emptyPendingEvents() {
  postInLife(*pendingEventsQueue_, thisLife(), [](QuillmarCore& self) {
    for (NamedEvent& event : self.pendingEvents_) {
      event.passage.end(EventEnd::reset);  // some may have been parked since the next epoch began
    }
    self.pendingEvents_.clear();
    self.pendingEventCount_.store(0, std::memory_order_relaxed);
  });
}

std::size_t QuillmarCore::pendingEventCount() const {
  return pendingEventCount_.load(std::memory_order_relaxed);
}

}  // namespace quillmar
