#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Insight/Finding.h"
#include "Insight/Reachability.h"
#include "quillmar/ConversionValues.h"
#include "quillmar/platform/Clock.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar::insight {

/// What an install has stored. An absent file is nothing.
struct InstallFiles {
  std::shared_ptr<platform::UserDefaults> settings;
  std::optional<std::string> configuration;
  std::optional<std::string> attribution;
};

/// A rule as it would be sent now: a half that it lacks is that of the last update.
struct SentRule {
  std::string key;
  std::optional<std::int64_t> fineValue;
  std::optional<CoarseValue> coarseValue;
  bool operator==(const SentRule&) const = default;
};

/// What is known of an install, and what it would do next.
struct InstallReport {
  using TimePoint = platform::Clock::TimePoint;

  struct Events {
    std::string name;
    std::size_t count = 0;
    TimePoint first;
    TimePoint last;
    std::size_t withRevenue = 0;
    double lowestRevenue = 0;
    double highestRevenue = 0;
    double totalRevenue = 0;
  };
  struct LastValue {
    SentRule rule;
    bool locked = false;
    std::vector<std::string> completedEvents;
  };
  struct Next {
    SampleEvent event;
    std::optional<SentRule> sent;  ///< nothing: no rule is complete then
  };

  TimePoint now;  ///< of which moment all this is
  std::optional<std::string> identifier;
  std::optional<TimePoint> firstRun;
  std::optional<std::int64_t> day;  ///< whole days since the first run
  std::optional<Window> window;     ///< nothing when the last one is over
  std::int64_t daysLeft = 0;        ///< of the window, today included
  bool hasKey = false;
  bool enabled = true;
  std::optional<std::string> appId;

  std::optional<TimePoint> fetched;        ///< when the configuration was last fetched
  std::optional<std::size_t> rules;        ///< of the configuration; nothing when there is none that can be used
  std::optional<CheckReport> check;        ///< of the configuration, when there is a file
  std::vector<Events> history;             ///< by name
  std::optional<LastValue> lastValue;      ///< what the platform was last told
  std::optional<std::string> attribution;  ///< the record, as JSON
  std::vector<std::string> complete;       ///< the keys of the rules that are complete in the window
  std::vector<Next> next;  ///< first for an event that no rule requires, then for those that change that

  /// What is damaged, and what the library makes of that.
  std::vector<std::string> problems;

  /// Of the configuration, since it was last fetched; negative when that is ahead of the clock.
  std::optional<std::chrono::seconds> age() const {
    return fetched ? std::optional(between(*fetched, now)) : std::nullopt;
  }

  /// Any two: also those that are further apart than a clock can count in its own units.
  static std::chrono::seconds between(TimePoint from, TimePoint to) {
    return std::chrono::floor<std::chrono::seconds>(to) - std::chrono::floor<std::chrono::seconds>(from);
  }
};

/// Says what an install has stored, as the library would read it at this moment of the clock. Writes nothing.
InstallReport inspectInstall(const InstallFiles& files, const platform::Clock& clock);

}  // namespace quillmar::insight
