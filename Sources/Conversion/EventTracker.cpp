#include "Conversion/EventTracker.h"

#include <algorithm>
#include <system_error>
#include <utility>
#include <variant>

#include "Conversion/RuleExplanation.h"
#include "Json/DecimalNumber.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Json/MapText.h"
#include "Json/Utf8.h"
#include "Logging/Log.h"
#include "Settings/StoreSetting.h"

namespace quillmar {

namespace {

std::optional<double> numberOf(const EventValue& value) {
  struct Visitor {
    std::optional<double> operator()(bool) const { return std::nullopt; }
    std::optional<double> operator()(std::int64_t number) const { return static_cast<double>(number); }
    std::optional<double> operator()(double number) const { return number; }
    std::optional<double> operator()(const std::string& text) const { return parseDecimal(text); }
  };
  return std::visit(Visitor{}, value.storage());
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

/// False when the text is no history; some events may have been handed out then.
template <class Take>
bool forEachStoredEvent(const std::string& history, Take take) {
  try {
    const boost::json::value document = parseJson(history);
    JsonReader(document).forEachElement([&take](const JsonReader& element) { take(TrackedEvent::decode(element)); });
    return true;
  } catch (const DecodingError&) {
    return false;
  }
}

}  // namespace

constinit std::mutex EventTracker::eventsQueue_;

EventTracker::EventTracker(std::shared_ptr<platform::UserDefaults> userDefaults,
                           std::shared_ptr<platform::Clock> clock) noexcept
    : userDefaults_(std::move(userDefaults)), clock_(std::move(clock)), digest_(userDefaults_, completedEventsKey) {}

void EventTracker::trackEvent(std::string_view name, const std::optional<NamedParameters>& parameters) {
  trackEvents({{std::string(name), parameters}});
}

void EventTracker::trackEvents(const std::vector<NewEvent>& events) {
  const std::lock_guard lock(eventsQueue_);
  std::vector<TrackedEvent> tracked;
  tracked.reserve(events.size());
  for (const NewEvent& event : events) {
    tracked.push_back({event.name, numbers(event.parameters), clock_->now()});
  }
  static_cast<void>(track(tracked, {}));
}

std::error_code EventTracker::trackEvents(const std::vector<TrackedEvent>& events, Tails alongside) {
  const std::lock_guard lock(eventsQueue_);
  return track(events, std::move(alongside));
}

std::map<std::string, double> EventTracker::numbers(const std::optional<NamedParameters>& parameters) {
  std::map<std::string, double> kept;
  if (parameters) {
    for (const auto& [name, value] : *parameters) {
      if (const std::optional<double> number = numberOf(value)) {
        kept.emplace(name, *number);
      }
    }
  }
  return kept;
}

std::error_code EventTracker::track(const std::vector<TrackedEvent>& events, Tails alongside) {
  const std::error_code error = store(events, std::move(alongside));
  for (const TrackedEvent& event : events) {
    if (error) {
      Log::error("EventTracker - Failed to store event: {}", error.message());
    } else if (Log::passes(LogLevel::debug)) {
      Log::debug("EventTracker - Tracked event: {} with parameters: {}", event.name,
                 mapText(event.parameters, decimalText));
    }
  }
  return error;
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
  if (!data || !forEachStoredEvent(*data, [&events](TrackedEvent event) { events.push_back(std::move(event)); })) {
    events.clear();
  }
  return events;
}

void EventTracker::clearCompletedEvents() {
  const std::lock_guard lock(eventsQueue_);
  indexedRevision_.reset();
  digest_.clear();  // first: it must not outlive the events
  // Emptied, then removed: should only the first write reach the disk, the events are gone all the same.
  storeSetting(*userDefaults_, completedEventsKey, platform::PropertyListValue::Data{"[]"});
  removeSetting(*userDefaults_, completedEventsKey);
  Log::debug("EventTracker - Cleared all tracked events");
}

void EventTracker::forgetBefore(platform::Clock::TimePoint instant) {
  const std::lock_guard lock(eventsQueue_);
  indexedRevision_.reset();
  if (updateIndex() || !oldest_ || *oldest_ >= instant) {
    return;
  }
  indexedRevision_.reset();
  std::string text;
  std::size_t forgotten = 0;
  const auto take = [&](const TrackedEvent& event) {
    const std::optional<std::string> json = event.timestamp >= instant ? encoded(event) : std::nullopt;
    forgotten += json ? 0 : 1;
    text += json ? (text.empty() ? "" : ",") + *json : "";
  };
  try {
    if (!forEachStoredEvent(userDefaults_->data(completedEventsKey).value_or(""), take)) {
      return;
    }
  } catch (const std::system_error& error) {
    Log::error("EventTracker - Old events cannot be read now: {}", error.code().message());
    return;
  }
  digest_.clear();  // first: it stands for bytes that move
  storeSetting(*userDefaults_, completedEventsKey, platform::PropertyListValue::Data{"[" + text + "]"});
  Log::debug("EventTracker - Forgot {} old events", forgotten);
}

Rules EventTracker::findCompletedConversionValues(const ConversionValues& values, Window currentWindow,
                                                  std::vector<Decision::Rule>* rules) {
  const std::lock_guard lock(eventsQueue_);
  static_cast<void>(updateIndex());
  if (rules != nullptr) {
    for (const auto& value : values.values) {
      if (const auto* const windowValue = value.windowValue(currentWindow)) {
        rules->push_back(explained(value.key, *windowValue, index_));
      }
    }
  }
  return completeRules(values, currentWindow, index_);
}

Rules EventTracker::followCompletedConversionValues(const std::shared_ptr<const ConversionValues>& document,
                                                    Window currentWindow) {
  const std::lock_guard lock(eventsQueue_);
  static_cast<void>(updateIndex());
  return completedRules_.find(document, currentWindow, index_);
}

std::vector<ConversionValues::ConversionValue> EventTracker::findCompletedConversionValues(
    const ConversionValues& values, Window currentWindow, const Matching& matching,
    std::vector<Decision::Rule>* rules) {
  const std::lock_guard lock(eventsQueue_);
  const RevenuesByName& history = historySince(matching.since);
  std::vector<ConversionValues::ConversionValue> completed;
  for (const auto& value : values.values) {
    const ConversionValues::WindowValue* const windowValue = value.windowValue(currentWindow);
    if (windowValue == nullptr) {
      continue;
    }
    ConversionValues::WindowValue halves = completeHalves(*windowValue, history, matching.singleBound);
    if (halves.fineValue || halves.coarseValue) {
      auto& copy = completed.emplace_back();
      copy.key = value.key;
      ConversionValues::WindowValue& counting = copy.windows[std::string(rawValue(currentWindow))];
      if (matching.onlyCompleteHalves) {
        counting = std::move(halves);
      } else {
        counting = *windowValue;
      }
    }
    if (rules != nullptr) {
      rules->push_back(explained(value.key, *windowValue, history, matching.singleBound));
    }
  }
  return completed;
}

const RevenuesByName& EventTracker::historySince(std::optional<platform::Clock::TimePoint> since) {
  if (!since) {
    static_cast<void>(updateIndex());
    return index_;
  }
  const std::optional<std::uint64_t> revision = userDefaults_->revision(completedEventsKey);
  if (revision && revision == recentRevision_ && *since == recentSince_) {
    return recent_;
  }
  recentRevision_.reset();
  recentSince_ = *since;
  recent_.clear();
  try {
    const std::string history = userDefaults_->data(completedEventsKey).value_or("");
    if (!forEachStoredEvent(history, [this](const TrackedEvent& event) { addToRecent(event); })) {
      recent_.clear();
    }
    recentRevision_ = revision;
  } catch (const std::system_error&) {
    recent_.clear();  // what cannot be read counts as not tracked
  }
  return recent_;
}

void EventTracker::addToRecent(const TrackedEvent& event) {
  if (event.timestamp >= recentSince_) {
    addEvent(recent_, event.name, event.revenue());
  }
}

std::error_code EventTracker::updateIndex() {
  // Read before the value: if that changes in between, the next call finds another revision.
  const std::optional<std::uint64_t> revision = userDefaults_->revision(completedEventsKey);
  if (revision && revision == indexedRevision_) {
    return {};
  }
  indexedRevision_.reset();
  completedRules_.forget();
  std::optional<HistoryDigest::Shortened> shortened = revision ? digest_.read() : std::nullopt;
  if (!shortened || !readIndex(shortened->history)) {
    try {
      shortened = {userDefaults_->data(completedEventsKey).value_or("")};
    } catch (const std::system_error& error) {
      index_.clear();
      return error.code();
    }
    digest_.begin();
    if (!readIndex(shortened->history)) {
      index_.clear();
      digest_.begin();
    }
  }
  // Only white space can follow the last bracket.
  appendAt_ = index_.empty() ? 0 : shortened->bytesLeftOut + shortened->history.rfind(']');
  indexedRevision_ = revision;
  return {};
}

bool EventTracker::readIndex(const std::string& history) {
  index_.clear();
  oldest_.reset();
  return forEachStoredEvent(history, [this](const TrackedEvent& event) {
    oldest_ = oldest_.value_or(event.timestamp);
    if (addEvent(index_, event.name, event.revenue())) {
      digest_.add(event);
    }
  });
}

std::error_code EventTracker::store(const std::vector<TrackedEvent>& events, Tails alongside) {
  std::string text;
  std::vector<const TrackedEvent*> storable;
  for (const TrackedEvent& event : events) {
    if (const std::optional<std::string> json = encoded(event)) {
      text += text.empty() ? "" : ",";
      text += *json;
      storable.push_back(&event);
    }
  }
  if (storable.empty()) {
    return alongside.empty() ? std::error_code{} : userDefaults_->replaceDataTails(alongside);
  }
  if (const std::error_code error = updateIndex()) {
    return error;
  }
  // Should anything throw from here on, the next call reads the history.
  const std::optional<std::uint64_t> revision = std::exchange(indexedRevision_, std::nullopt);
  const bool first = appendAt_ == 0;
  text = (first ? "[" : ",") + text + "]";
  std::error_code error;
  if (alongside.empty()) {
    error = first ? userDefaults_->set(completedEventsKey, platform::PropertyListValue::Data{text})
                  : userDefaults_->replaceDataTail(completedEventsKey, appendAt_, text);
  } else {
    error = first ? userDefaults_->set(completedEventsKey, platform::PropertyListValue::Data{"[]"}) : std::error_code{};
    // The history first: a store that takes one after the other then loses no event that is marked as tracked.
    alongside.insert(alongside.begin(),
                     {std::string(completedEventsKey), first ? 1 : appendAt_, first ? text.substr(1) : text});
    error = error ? error : userDefaults_->replaceDataTails(alongside);
  }
  if (error) {
    // The store holds on to what it could not set, or holds something else than was read from it: read it again.
    if (!first && error != std::errc::invalid_argument) {
      indexedRevision_ = revision;
    }
    return error;
  }
  const bool isRecentUpToDate = revision && std::exchange(recentRevision_, std::nullopt) == revision;
  for (const TrackedEvent* const event : storable) {
    if (addEvent(index_, event->name, event->revenue())) {
      completedRules_.noteNews(event->name);
      digest_.add(*event);
    }
    if (isRecentUpToDate) {
      addToRecent(*event);
    }
  }
  appendAt_ += text.size() - 1;
  indexedRevision_ = userDefaults_->revision(completedEventsKey);
  if (isRecentUpToDate) {
    recentRevision_ = indexedRevision_;
  }
  if (indexedRevision_) {
    digest_.keepUp(appendAt_);
  }
  return {};
}

}  // namespace quillmar
