#include "Insight/InstallInspection.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

#include "Conversion/Completion.h"
#include "Conversion/ConversionTrackingManager.h"
#include "Conversion/ConversionValueResolver.h"
#include "Conversion/EventTracker.h"
#include "Conversion/LastWindowValue.h"
#include "Conversion/LowestRanked.h"
#include "Conversion/PostbackWindows.h"
#include "Insight/ConfigurationCheck.h"
#include "Json/CodingError.h"
#include "Json/JsonObjectText.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Model/ConversionValuesCoding.h"
#include "Settings/Calendar.h"
#include "quillmar/Config.h"

namespace quillmar::insight {

namespace {

using platform::PropertyListValue;

class Inspection {
 public:
  Inspection(const InstallFiles& files, const platform::Clock& clock) : files_(files), clock_(clock) {}

  InstallReport run() {
    readSettings();
    readHistory();
    readLastValue();
    readAttribution();
    readConfiguration();
    if (configuration_ && report_.window) {
      lookAhead(*configuration_, *report_.window);
    }
    return std::move(report_);
  }

 private:
  void problem(std::string text) { report_.problems.push_back(std::move(text)); }

  /// The value under a key when it has that type. One of another type is a problem.
  template <class T>
  std::optional<T> setting(std::string_view key) {
    const std::optional<PropertyListValue> value = files_.settings->object(key);
    const T* const content = value ? value->as<T>() : nullptr;
    if (value && content == nullptr) {
      problem(fmt::format("The setting {} has another type than the library stores; it counts as absent.", key));
    }
    return content != nullptr ? std::optional(*content) : std::nullopt;
  }

  void readSettings() {
    report_.now = clock_.now();
    report_.identifier = setting<std::string>(Config::quillMarId);
    report_.hasKey = setting<std::string>(Config::quillmarVerificationKey).has_value();
    report_.appId = setting<std::string>(Config::serverAppId);
    report_.enabled = setting<bool>(Config::sdkEnabled).value_or(true);
    report_.fetched = setting<InstallReport::TimePoint>(Config::lastConversionValuesFetchTimestamp);
    report_.firstRun = setting<InstallReport::TimePoint>(Config::firstRunDateKey);
    report_.window = Window::window0;  // also without a first run
    if (report_.firstRun) {
      report_.day = Calendar(clock_).wholeDays(*report_.firstRun, report_.now);
      report_.window = windowAt(*report_.day);
    }
    if (report_.window) {
      report_.daysLeft = windowEnd(*report_.window) - report_.day.value_or(0);
    }
  }

  void readHistory() {
    std::map<std::string, InstallReport::Events> byName;
    try {
      if (const auto data = setting<PropertyListValue::Data>(EventTracker::completedEventsKey)) {
        const boost::json::value document = parseJson(data->bytes);
        JsonReader(document).forEachElement(
            [&](const JsonReader& reader) { add(byName, TrackedEvent::decode(reader)); });
      }
    } catch (const DecodingError& error) {
      problem(fmt::format("The history of events cannot be read; the library begins a new one: {}.", error.detail()));
      byName.clear();
      history_.clear();
    } catch (const std::system_error& error) {
      problem(fmt::format("The history of events cannot be read now: {}.", error.what()));
    }
    for (auto& [name, events] : byName) {
      report_.history.push_back(std::move(events));
    }
  }

  void add(std::map<std::string, InstallReport::Events>& byName, const TrackedEvent& event) {
    const auto [entry, isNew] = byName.try_emplace(event.name);
    InstallReport::Events& events = entry->second;
    events.name = event.name;
    ++events.count;
    events.first = isNew ? event.timestamp : std::min(events.first, event.timestamp);
    events.last = isNew ? event.timestamp : std::max(events.last, event.timestamp);
    if (const auto revenue = event.revenue()) {
      const bool isFirst = events.withRevenue++ == 0;
      events.lowestRevenue = isFirst ? *revenue : std::min(events.lowestRevenue, *revenue);
      events.highestRevenue = isFirst ? *revenue : std::max(events.highestRevenue, *revenue);
      events.totalRevenue += *revenue;
    }
    addEvent(history_, event.name, event.revenue());
  }

  void readLastValue() {
    if (const auto last = readLastWindowValue(*files_.settings)) {
      report_.lastValue = {{last->key, last->fineValue, last->coarseValue},
                           last->lockWindow.value_or(false),
                           {last->completedEvents.begin(), last->completedEvents.end()}};
    } else if (files_.settings->object(Config::lastWindowValue)) {
      problem("The last value that was sent cannot be read; the library goes on as if there were none.");
    }
  }

  void readAttribution() {
    if (!files_.attribution) {
      return;
    }
    try {
      if (const auto record = JsonObjectText::parse(*files_.attribution)) {
        report_.attribution = record->text();
        return;
      }
      problem("The stored attribution is an array; purchases are sent without it.");
    } catch (const DecodingError& error) {
      problem(fmt::format("The stored attribution cannot be read; purchases are sent without it: {}.", error.detail()));
    }
  }

  void readConfiguration() {
    if (!files_.configuration) {
      return;
    }
    report_.check = checkConfiguration(*files_.configuration);
    try {
      const boost::json::value document = parseJson(*files_.configuration);
      configuration_ = Codable<ConversionValues>::decode(JsonReader(document));
      report_.rules = configuration_->values.size();
    } catch (const DecodingError& error) {
      problem(fmt::format("The stored configuration cannot be used; no value is sent until the next fetch: {}.",
                          error.detail()));
    }
  }

  void lookAhead(const ConversionValues& configuration, Window window) {
    std::vector<const ConversionValues::ConversionValue*> rules;
    for (const auto& rule : configuration.values) {
      if (const auto* const value = rule.windowValue(window)) {
        rules.push_back(&rule);
        if (isComplete(*value, history_)) {
          report_.complete.push_back(rule.key);
        }
      }
    }
    if (!report_.enabled) {
      return;
    }
    std::size_t effort = Effort{}.left;
    for (SampleEvent& event : ReachabilityAnalysis(rules, window).events()) {
      if (effort < rules.size()) {
        problem("There are too many rules to look at each event that may come next.");
        return;
      }
      effort -= rules.size();
      RevenuesByName history = history_;
      addEvent(history, event.name, event.revenue);
      std::optional<SentRule> sent = sentAfter(history, rules, window);
      if (report_.next.empty() || sent != report_.next.front().sent) {
        report_.next.push_back({std::move(event), std::move(sent)});
      }
    }
  }

  std::optional<SentRule> sentAfter(const RevenuesByName& history,
                                    const std::vector<const ConversionValues::ConversionValue*>& rules,
                                    Window window) const {
    std::vector<const ConversionValues::ConversionValue*> completed;
    std::copy_if(rules.begin(), rules.end(), std::back_inserter(completed),
                 [&](const auto* rule) { return isComplete(*rule->windowValue(window), history); });
    if (completed.empty()) {
      return std::nullopt;
    }
    const auto resolved =
        ConversionValueResolver(files_.settings).resolveConversionValue(*lowestRanked(completed, window), window);
    const auto& value = *resolved.windowValue(window);
    return SentRule{resolved.key, value.fineValue ? std::optional(value.fineValue->value) : std::nullopt,
                    value.coarseValue ? std::optional(value.coarseValue->value) : std::nullopt};
  }

  const InstallFiles& files_;
  const platform::Clock& clock_;
  InstallReport report_;
  RevenuesByName history_;
  std::optional<ConversionValues> configuration_;
};

}  // namespace

InstallReport inspectInstall(const InstallFiles& files, const platform::Clock& clock) {
  return Inspection(files, clock).run();
}

}  // namespace quillmar::insight
