#include "Install.h"

#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>
#include <set>
#include <sstream>

#include "Conversion/EventTracker.h"
#include "Conversion/LastWindowValue.h"
#include "Platform/PropertyListCoding.h"
#include "Platform/Sqlite/SqliteDatabase.h"
#include "Platform/Sqlite/SqliteUserDefaults.h"
#include "Settings/QuillMarDefaults.h"
#include "quillmar/Config.h"

namespace quillmar::sweep {

namespace {

namespace fs = std::filesystem;
using platform::PropertyListValue;

/// SQLite's own opinion.
bool isWhole(const std::string& file) {
  platform::SqliteDatabase database;
  std::int64_t good = 0;
  return database.open(file) == SQLITE_OK &&
         database.readInteger("SELECT integrity_check = 'ok' FROM pragma_integrity_check", good) == SQLITE_OK &&
         good == 1;
}

std::string settingsFile(const std::string& folder) {
  return folder + "/settings/" + std::string(quillMarDefaultsSuite) + ".sqlite";
}

std::string encoded(const PropertyListValue& value) {
  return platform::encodePropertyList(value).value();
}

/// As the calls to the ad network are told.
std::string textOf(const std::optional<LastWindowValue>& value) {
  return value ? std::to_string(value->fineValue) + " " +
                     std::string(value->coarseValue ? rawValue(*value->coarseValue) : "nil")
               : "unreadable";
}

/// The lines that were written to their ends.
std::istringstream completeLines(const std::string& text) {
  return std::istringstream(text.substr(0, text.rfind('\n') + 1));
}

struct Losses {
  std::vector<std::string> texts;

  void expect(bool holds, const std::string& otherwise) {
    if (!holds) {
      texts.push_back(otherwise);
    }
  }

  void expectEvents(const Install& now, const std::vector<std::string>& wanted, const char* whose) {
    for (const std::string& name : wanted) {
      expect(std::count(now.history.begin(), now.history.end(), name) != 0,
             std::string("lost event ") + whose + ": " + name);
    }
  }

  /// Nothing is damaged or there twice, and an install identifier that was read once stays.
  void expectSound(const Install& before, const Install& now) {
    texts.insert(texts.end(), now.problems.begin(), now.problems.end());
    expect(std::set(now.history.begin(), now.history.end()).size() == now.history.size(),
           "an event is in the history twice");
    for (const std::string_view key : {Config::quillMarId, Config::firstRunDateKey}) {
      expect(before.settings.at(key).empty() || now.settings.at(key) == before.settings.at(key),
             std::string(key) + " has changed");
    }
    expect(now.settings.at(Config::firstRunDateKey).empty() || !now.settings.at(Config::quillMarId).empty(),
           "a first run without an install identifier");
  }
};

}  // namespace

Install::Install(const std::string& folder, const std::string& copy) {
  fs::remove_all(copy);
  fs::copy(folder, copy, fs::copy_options::recursive);
  configuration = readFile(copy + configurationPath);
  attribution = readFile(copy + "/documents/asa_attribution_data.json");
  const std::string file = settingsFile(copy);
  std::shared_ptr<platform::SqliteUserDefaults> store;
  if (fs::exists(file)) {
    if (!isWhole(file)) {
      problems.emplace_back("the settings file is damaged");
    }
    store = platform::SqliteUserDefaults::open(file, [this](std::string_view text) { problems.emplace_back(text); });
  }
  const auto last = store ? readLastWindowValue(*store) : std::nullopt;
  hasWindow = last && last->window;
  for (const std::string_view key :
       {Config::quillMarId, Config::firstRunDateKey, Config::quillmarVerificationKey, Config::serverAppId,
        Config::sdkEnabled, Config::lastConversionValuesFetchTimestamp, Config::lastWindowValue}) {
    const auto value = store ? store->object(key) : std::nullopt;
    settings[key] = !value ? "" : key == Config::lastWindowValue ? textOf(last) : encoded(*value);
  }
  try {
    const auto stored = store ? store->data(EventTracker::completedEventsKey) : std::nullopt;
    const auto json = boost::json::parse(stored.value_or("[]"));
    for (const boost::json::value& event : json.as_array()) {
      history.emplace_back(event.at("name").as_string());
    }
  } catch (const std::exception& error) {
    problems.push_back(std::string("the history cannot be decoded: ") + error.what());
  }
}

void makeHistoryOld(const std::string& folder) {
  constexpr double hundredDays = 100 * 86400.0;
  const auto store = platform::SqliteUserDefaults::open(settingsFile(folder), [](std::string_view) {});
  auto history = boost::json::parse(store->data(EventTracker::completedEventsKey).value());
  boost::json::array& events = history.as_array();
  std::for_each(events.begin(), events.end() - 1, [](boost::json::value& event) {
    event.at("timestamp") = event.at("timestamp").to_number<double>() - hundredDays;
  });
  store->set(EventTracker::completedEventsKey, PropertyListValue::Data{boost::json::serialize(history)});
}

Acknowledged::Acknowledged(const RunResult& run) {
  std::istringstream log = completeLines(run.errors);
  for (std::string line; std::getline(log, line);) {
    const auto says = [&line](std::string_view text) { return line.find(text) != std::string::npos; };
    constexpr std::string_view tracked = "EventTracker - Tracked event: ";
    constexpr std::string_view kept = "Outbox - Kept event: ";
    if (says(tracked)) {
      const std::size_t at = line.find(tracked) + tracked.size();
      events.push_back(line.substr(at, line.find(" with parameters", at) - at));
    } else if (says(kept)) {
      keptEvents.push_back(line.substr(line.find(kept) + kept.size()));
    } else if (says("EventTracker - Cleared all tracked events")) {
      cleared = true;
      keptEvents.clear();
      clearedEvents.insert(clearedEvents.end(), events.begin(), events.end());
      events.clear();
    } else if (says("EventTracker - Forgot ")) {
      forgot = true;
    } else if (says("ConversionTrackingManager - Saved last window value")) {
      ++windowValues;
    } else if (says(" cannot be used: ") || says(" cannot be created: ")) {
      standInStore = true;
    }
  }
  if (standInStore) {
    events.clear();  // these are in the other store, or were in memory
    keptEvents.clear();
    cleared = false;
  }
  std::istringstream output = completeLines(run.output);
  for (std::string line; std::getline(output, line);) {
    const boost::json::object call = boost::json::parse(line).as_object();
    if (call.contains("platform")) {
      const boost::json::value& coarse = call.at("coarseValue");
      platformCalls.push_back(std::to_string(call.at("fineValue").as_int64()) + " " +
                              (coarse.is_null() ? "nil" : std::string(coarse.as_string())));
    }
  }
}

std::vector<std::string> lossesAfterRun(const Expectation& expected, const Acknowledged& told, const Install& now) {
  Losses losses;
  const Install& before = expected.before;
  losses.expectSound(before, now);
  losses.expect(expected.writesFailed || !told.standInStore, "the run could not use the settings");

  const auto areGone = [&now](const auto& names) {
    return std::find_first_of(names.begin(), names.end(), now.history.begin(), now.history.end()) == names.end();
  };
  if (told.cleared && !expected.writesFailed) {
    losses.expect(areGone(before.history) && areGone(told.clearedEvents), "an event has come back after the reset");
  }
  losses.expect(!told.forgot || expected.writesFailed || areGone(expected.old), "an old event has come back");
  // A reset that has begun may have forgotten the events already, but all of them together.
  const bool mayBeGone = expected.resets && areGone(before.history) && (told.cleared || areGone(told.events));
  if (!mayBeGone) {
    const auto forgotten = areGone(expected.old) ? std::ssize(expected.old) : 0;
    losses.expectEvents(now, {before.history.begin() + forgotten, before.history.end()}, "of an earlier run");
  }
  if (!mayBeGone || told.cleared) {
    losses.expectEvents(now, told.events, "that was tracked");
  }

  const auto expectOldOr = [&](std::string_view key, const std::string& added) {
    const std::string value = now.settings.at(key);
    losses.expect(value == before.settings.at(key) || value == added || (value.empty() && expected.resets),
                  std::string(key) + " is neither the old nor the new one");
  };
  expectOldOr(Config::quillmarVerificationKey, encoded(expected.key));
  expectOldOr(Config::serverAppId, encoded("development-app"));
  expectOldOr(Config::sdkEnabled, encoded(true));
  losses.expect(!now.settings.at(Config::lastConversionValuesFetchTimestamp).empty() || expected.resets ||
                    before.settings.at(Config::lastConversionValuesFetchTimestamp).empty(),
                "the date of the last fetch is gone");

  // The platform is called before the value is saved, so the value may be one behind the calls and what was said of it.
  std::vector<std::string> values{before.settings.at(Config::lastWindowValue)};
  values.insert(values.end(), told.platformCalls.begin(), told.platformCalls.end());
  const std::size_t first = expected.writesFailed ? 0 : std::min(told.windowValues, values.size() - 1);
  const std::string value = now.settings.at(Config::lastWindowValue);
  losses.expect(std::find(values.begin() + static_cast<std::ptrdiff_t>(first), values.end(), value) != values.end(),
                "the last window value is \"" + value + "\", neither the old nor the new one");

  losses.expect(!expected.windowIsKept || now.hasWindow || value == before.settings.at(Config::lastWindowValue),
                "the last window value does not tell its window");

  losses.expect(now.configuration.empty() || now.configuration == before.configuration ||
                    now.configuration == expected.configuration,
                "the configuration file is torn");
  losses.expect(now.attribution == before.attribution || now.attribution == expected.attribution ||
                    (!expected.isAttributionWhole && expected.attribution.rfind(now.attribution, 0) == 0),
                "the attribution file has strange content");
  return losses.texts;
}

std::vector<std::string> lossesAfterRestart(const Expectation& expected, const RunResult& restart,
                                            const std::string& event, const Install& now) {
  Losses losses;
  losses.expect(restart.hasDrained(), "the next start did not end well: " + restart.output);
  losses.expect(!Acknowledged(restart).standInStore, "the next start could not use the settings");
  losses.expectSound(expected.before, now);
  losses.expectEvents(now, expected.before.history, "at the next start");
  losses.expectEvents(now, {event}, "of the next start");
  losses.expect(!now.settings.at(Config::firstRunDateKey).empty(), "the next start has no install identifier");
  losses.expect(now.settings.at(Config::quillmarVerificationKey) == encoded(expected.key),
                "the next start has another key");
  losses.expect(now.settings.at(Config::serverAppId) == encoded("development-app") &&
                    now.settings.at(Config::sdkEnabled) == encoded(true),
                "the next start has not stored what the service sent");
  losses.expect(now.configuration == expected.configuration, "the next fetch did not mend the configuration");
  return losses.texts;
}

}  // namespace quillmar::sweep
