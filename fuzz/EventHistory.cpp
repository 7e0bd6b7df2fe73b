// The stored event history: JSON that the tracker appends to without reading it whole again.
#include <algorithm>

#include "Json/Utf8.h"
#include "Promises.h"
#include "quillmar/simulated/ManualClock.h"
#include "support/FaultyStores.h"

using namespace quillmar;
using fuzz::require;
using platform::PropertyListValue;

namespace {

constexpr std::size_t askedEvents = 16;  ///< of a long history, for which the rules are tried
const platform::Clock::TimePoint now = std::chrono::sys_days(std::chrono::year(2026) / 1 / 1);

/// The tracker's rule, over the plain list.
bool isMet(const std::vector<TrackedEvent>& events, const ConversionValues::RequiredEvent& rule) {
  return std::any_of(events.begin(), events.end(), [&rule](const TrackedEvent& event) {
    const auto revenue = event.parameters.find("revenue");
    return event.name == rule.name && (!rule.revenueMin || !rule.revenueMax ||
                                       (revenue != event.parameters.end() && *rule.revenueMin <= revenue->second &&
                                        revenue->second <= *rule.revenueMax));
  });
}

void requireAnswers(EventTracker& tracker, const std::vector<TrackedEvent>& events) {
  require(tracker.getAllTrackedEvents() == events, "the stored history is the one that was there and what came since");
  std::set<std::string> names;
  for (const TrackedEvent& event : events) {
    names.insert(event.name);
  }
  require(tracker.getTrackedEventNames() == names, "the index knows each name and no other");
  require(tracker.areEventsCompleted({names.begin(), names.end()}), "all tracked events are completed");
  for (std::size_t i = events.size() - std::min(events.size(), askedEvents); i < events.size(); ++i) {
    const auto revenue = events[i].parameters.find("revenue");
    const double amount = revenue == events[i].parameters.end() ? 25 : revenue->second;
    using Rule = ConversionValues::RequiredEvent;
    for (const Rule& rule : {Rule{events[i].name, std::nullopt, 1},
                             {events[i].name, 1e300, std::nullopt},
                             {events[i].name, amount, amount},
                             {events[i].name, amount + 1, amount + 2},
                             {events[i].name + "?", {}, {}}}) {
      ConversionValues values;
      values.values = {{"rule", {{"window0", {{{1, {rule}}}, {}}}}}};
      require(tracker.findCompletedConversionValues(values, Window::window0).empty() != isMet(events, rule),
              "the index answers like a search through the list");
    }
  }
}

/// Two trackers take turns on one store.
std::string tracked(const std::shared_ptr<platform::UserDefaults>& store, const std::string& stored,
                    const std::string& name) {
  const auto clock = std::make_shared<simulated::ManualClock>(now);
  store->set(EventTracker::completedEventsKey, PropertyListValue::Data{stored});
  EventTracker first(store, clock);
  EventTracker second(store, clock);
  std::vector<TrackedEvent> events = first.getAllTrackedEvents();
  for (const auto& [tracker, other] : {std::pair(&first, &second), {&second, &first}, {&first, &second}}) {
    tracker->trackEvent(name, NamedParameters{{"revenue", 25}, {"text", "30.5"}, {"dropped", true}});
    if (validUtf8Prefix(name) == name.size()) {
      events.push_back({name, {{"revenue", 25.0}, {"text", 30.5}}, now});
    }
    requireAnswers(*other, events);
  }
  requireAnswers(first, events);
  return store->data(EventTracker::completedEventsKey).value_or("");
}

}  // namespace

void fuzz::look(std::string_view bytes) {
  const std::string input(bytes);
  for (const std::string& name : {std::string("purchase"), input}) {  // any bytes may be an event's name, too
    using Store = simulated::InMemoryUserDefaults;
    const auto simple = std::make_shared<test::MinimalUserDefaults>(std::make_shared<Store>());
    require(tracked(std::make_shared<Store>(), input, name) == tracked(simple, input, name),
            "what is stored does not depend on what the store can do");
  }
}
