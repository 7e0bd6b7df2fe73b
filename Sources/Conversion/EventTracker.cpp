#include "Conversion/EventTracker.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>

#include "Json/DecimalNumber.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Json/Utf8.h"
#include "Logging/Logger.h"
#include "Settings/StoreSetting.h"

namespace quillmar {

namespace {

/// How often a thread lets others run before it goes to sleep.
constexpr int openEyedTurns = 50;

std::optional<double> numberOf(const EventValue& value) {
  struct Visitor {
    std::optional<double> operator()(bool) const { return std::nullopt; }
    std::optional<double> operator()(std::int64_t number) const { return static_cast<double>(number); }
    std::optional<double> operator()(double number) const { return number; }
    std::optional<double> operator()(const std::string& text) const { return parseDecimal(text); }
  };
  return std::visit(Visitor{}, value.storage());
}

std::map<std::string, double> numbersOf(const std::optional<NamedParameters>& parameters) {
  std::map<std::string, double> numbers;
  if (parameters) {
    for (const auto& [name, value] : *parameters) {
      if (const std::optional<double> number = numberOf(value)) {
        numbers.emplace(name, *number);
      }
    }
  }
  return numbers;
}

/// The event as JSON; nothing when there is no JSON for it that could be read back.
std::optional<std::string> encoded(const TrackedEvent& event) {
  try {
    JsonWriter writer;
    event.encode(writer);
    std::string text = writer.take();
    return validUtf8Prefix(text) == text.size() ? std::optional(std::move(text)) : std::nullopt;
  } catch (const EncodingError&) {
    return std::nullopt;
  }
}

/// Data that is missing or cannot be decoded is an empty history: `forgetAll` then takes back what was handed out.
template <class Take, class Forget>
void forEachStoredEvent(const std::optional<std::string>& data, Take take, Forget forgetAll) {
  if (!data) {
    return;
  }
  try {
    const boost::json::value document = parseJson(*data);
    JsonReader(document).forEachElement([&take](const JsonReader& element) { take(TrackedEvent::decode(element)); });
  } catch (const DecodingError&) {
    forgetAll();
  }
}

std::string textOf(const std::map<std::string, double>& parameters) {
  std::string text = "[";
  for (const auto& [name, value] : parameters) {
    fmt::format_to(std::back_inserter(text), "{}\"{}\": {}", text.size() > 1 ? ", " : "", name, value);
  }
  return text + (parameters.empty() ? ":]" : "]");
}

}  // namespace

constinit std::mutex EventTracker::eventsQueue_;

EventTracker::EventTracker(std::shared_ptr<platform::UserDefaults> userDefaults,
                           std::shared_ptr<platform::Clock> clock) noexcept
    : userDefaults_(std::move(userDefaults)), clock_(std::move(clock)) {}

void EventTracker::trackEvent(std::string_view name, const std::optional<NamedParameters>& parameters) {
  track({makeEvent(name, parameters)});
}

void EventTracker::trackEvents(const std::vector<NewEvent>& events) {
  std::vector<TrackedEvent> made;
  made.reserve(events.size());
  for (const NewEvent& event : events) {
    made.push_back(makeEvent(event.name, event.parameters));
  }
  track(made);
}

TrackedEvent EventTracker::makeEvent(std::string_view name, const std::optional<NamedParameters>& parameters) const {
  return {std::string(name), numbersOf(parameters), clock_->now()};
}

void EventTracker::track(const std::vector<TrackedEvent>& events) {
  Waiting own;
  own.events.reserve(events.size());
  for (const TrackedEvent& event : events) {
    if (const std::optional<std::string> text = encoded(event)) {
      own.encoded += own.encoded.empty() ? "" : ",";
      own.encoded += *text;
      own.events.push_back(&event);
    }
  }
  if (!own.events.empty()) {
    store(own);
  }
  for (const TrackedEvent& event : events) {
    if (own.error) {
      Logger::error("EventTracker - Failed to store event: {}", own.error.message());
    } else if (Logger::passes(LogLevel::debug)) {
      Logger::debug("EventTracker - Tracked event: {} with parameters: {}", event.name, textOf(event.parameters));
    }
  }
}

/// Whoever finds nobody storing stores the events of all who wait, at the price of one.
void EventTracker::store(Waiting& own) {
  std::unique_lock lock(waitingMutex_);
  waiting_.push_back(&own);
  // Storing takes about as long as falling asleep and waking up, so the others are worth a short wait with open eyes.
  if (storing_) {
    lock.unlock();
    for (int i = 0; i < openEyedTurns && storing_ && !own.done; ++i) {
      std::this_thread::yield();
    }
    lock.lock();
  }
  stored_.wait(lock, [this, &own] { return own.done || !storing_; });
  if (own.done) {
    return;
  }
  storing_ = true;
  if (crowded_) {
    lock.unlock();
    std::this_thread::yield();  // those who were served a moment ago are about to come again
    lock.lock();
  }
  const std::vector<Waiting*> batch = std::exchange(waiting_, {});
  crowded_ = batch.size() > 1;
  lock.unlock();
  const std::error_code error = storeAll(batch);
  lock.lock();
  for (Waiting* const waiting : batch) {
    waiting->error = error;
    waiting->done = true;
  }
  storing_ = false;
  stored_.notify_all();
}

std::error_code EventTracker::storeAll(const std::vector<Waiting*>& batch) noexcept {
  const std::lock_guard lock(eventsQueue_);
  try {
    if (const std::error_code error = updateIndex()) {
      return error;
    }
    std::string text = std::move(batch.front()->encoded);
    for (std::size_t i = 1; i < batch.size(); ++i) {
      text += ',';
      text += batch[i]->encoded;
    }
    if (const std::error_code error = append(text)) {
      return error;
    }
  } catch (...) {  // out of memory, or a store that throws
    indexedRevision_.reset();
    return std::make_error_code(std::errc::not_enough_memory);
  }
  try {
    for (const Waiting* const waiting : batch) {
      std::for_each(waiting->events.begin(), waiting->events.end(),
                    [this](const TrackedEvent* event) { addToIndex(*event); });
    }
  } catch (...) {
    indexedRevision_.reset();  // stored they are; the next call reads them
  }
  return {};
}

bool EventTracker::areEventsCompleted(const std::vector<std::string>& names) {
  const std::lock_guard lock(eventsQueue_);
  static_cast<void>(updateIndex());  // what cannot be read counts as not tracked
  return std::all_of(names.begin(), names.end(), [this](const std::string& name) { return index_.contains(name); });
}

std::set<std::string> EventTracker::getTrackedEventNames() {
  const std::lock_guard lock(eventsQueue_);
  static_cast<void>(updateIndex());
  std::set<std::string> names;
  for (const auto& [name, revenues] : index_) {
    names.insert(name);
  }
  return names;
}

std::vector<TrackedEvent> EventTracker::getAllTrackedEvents() {
  std::optional<std::string> data;
  {
    const std::lock_guard lock(eventsQueue_);
    data = userDefaults_->data(completedEventsKey);
  }
  std::vector<TrackedEvent> events;
  forEachStoredEvent(
      data, [&events](TrackedEvent event) { events.push_back(std::move(event)); }, [&events] { events.clear(); });
  return events;
}

void EventTracker::clearCompletedEvents() {
  const std::lock_guard lock(eventsQueue_);
  indexedRevision_.reset();
  // Emptied before it is removed, on purpose: should only the write reach the disk, the events are gone all the same.
  storeSetting(*userDefaults_, completedEventsKey, platform::PropertyListValue::Data{"[]"});
  removeSetting(*userDefaults_, completedEventsKey);
  Logger::debug("EventTracker - Cleared all tracked events");
}

std::vector<const ConversionValues::ConversionValue*> EventTracker::findCompletedConversionValues(
    const ConversionValues& values, Window currentWindow) {
  const std::lock_guard lock(eventsQueue_);
  static_cast<void>(updateIndex());
  std::vector<const ConversionValues::ConversionValue*> completed;
  for (const auto& value : values.values) {
    const ConversionValues::WindowValue* const windowValue = value.windowValue(currentWindow);
    if (windowValue != nullptr && ((windowValue->fineValue && allMet(windowValue->fineValue->requiredEvents)) ||
                                   (windowValue->coarseValue && allMet(windowValue->coarseValue->requiredEvents)))) {
      completed.push_back(&value);
    }
  }
  return completed;
}

std::error_code EventTracker::updateIndex() {
  // Read before the value: if that changes in between, the next call finds another revision.
  const std::optional<std::uint64_t> revision = userDefaults_->revision(completedEventsKey);
  if (revision && revision == indexedRevision_) {
    return {};
  }
  indexedRevision_.reset();
  index_.clear();
  std::optional<std::string> data;
  try {
    data = userDefaults_->data(completedEventsKey);
  } catch (const std::system_error& error) {
    return error.code();
  }
  forEachStoredEvent(data, [this](TrackedEvent event) { addToIndex(event); }, [this] { index_.clear(); });
  // Only white space can follow the last bracket.
  appendAt_ = index_.empty() ? 0 : data->rfind(']');
  indexedRevision_ = revision;
  return {};
}

void EventTracker::addToIndex(const TrackedEvent& event) {
  std::set<double>& revenues = index_[event.name];
  if (const auto revenue = event.parameters.find("revenue"); revenue != event.parameters.end()) {
    revenues.insert(revenue->second);
  }
}

std::error_code EventTracker::append(const std::string& encodedEvents) {
  const bool first = appendAt_ == 0;
  const std::string text = (first ? "[" : ",") + encodedEvents + "]";
  const std::error_code error = first ? userDefaults_->set(completedEventsKey, platform::PropertyListValue::Data{text})
                                      : userDefaults_->replaceDataTail(completedEventsKey, appendAt_, text);
  if (!error) {
    appendAt_ += text.size() - 1;
    indexedRevision_ = userDefaults_->revision(completedEventsKey);
  } else if (first || error == std::errc::invalid_argument) {
    // The store holds on to what it could not write, or holds something else than was read from it: read it again.
    indexedRevision_.reset();
  }
  return error;
}

bool EventTracker::allMet(const std::vector<ConversionValues::RequiredEvent>& events) const {
  return std::all_of(events.begin(), events.end(), [this](const ConversionValues::RequiredEvent& event) {
    const auto found = index_.find(std::string_view(event.name));
    if (found == index_.end()) {
      return false;
    }
    if (!event.revenueMin || !event.revenueMax) {
      return true;  // a single bound does not count, on purpose
    }
    const std::set<double>& revenues = found->second;
    const auto candidate = revenues.lower_bound(*event.revenueMin);
    return candidate != revenues.end() && *candidate <= *event.revenueMax;
  });
}

}  // namespace quillmar
