#include "Install.h"

#include <algorithm>
#include <boost/json.hpp>
#include <sstream>

#include "Conversion/LastWindowValue.h"
#include "quillmar/Config.h"

namespace quillmar::sweep {

namespace {

using platform::PropertyListValue;

std::string textOf(const LastWindowValue& value) {
  return std::to_string(value.fineValue) + " " + std::string(value.coarseValue ? rawValue(*value.coarseValue) : "nil");
}

std::string lastWindowValueOf(const DataFolder& folder) {
  const auto* value = folder.setting(std::string(Config::lastWindowValue));
  if (value == nullptr) {
    return "none";
  }
  const auto* dictionary = value->as<PropertyListValue::Dictionary>();
  const auto decoded = dictionary != nullptr ? LastWindowValue::fromDictionary(*dictionary) : std::nullopt;
  return decoded ? textOf(*decoded) : "unreadable";
}

class Losses {
 public:
  void expect(bool holds, const std::string& otherwise) {
    if (!holds) {
      texts_.push_back(otherwise);
    }
  }

  void expectEvents(const DataFolder& now, const std::vector<std::string>& wanted, const char* whose) {
    for (const std::string& name : wanted) {
      expect(contains(now, name), std::string("lost event ") + whose + ": " + name);
    }
  }

  /// Nothing is damaged or there twice, and an install identifier that was read once stays.
  void expectSound(const DataFolder& before, const DataFolder& now) {
    for (const std::string& problem : now.problems) {
      expect(false, "damage: " + problem);
    }
    expect(now.historyIsDecodable, "the history cannot be decoded");
    expect(std::set<std::string>(now.history.begin(), now.history.end()).size() == now.history.size(),
           "an event is in the history twice");
    for (const std::string_view key : {Config::quillMarId, Config::firstRunDateKey}) {
      const auto* old = before.setting(std::string(key));
      const auto* value = now.setting(std::string(key));
      expect(old == nullptr || (value != nullptr && *value == *old), std::string(key) + " has changed");
    }
    expect(now.setting(std::string(Config::firstRunDateKey)) == nullptr ||
               now.setting(std::string(Config::quillMarId)) != nullptr,
           "a first run without an install identifier");
  }

  static bool contains(const DataFolder& folder, const std::string& name) {
    return std::find(folder.history.begin(), folder.history.end(), name) != folder.history.end();
  }

  std::vector<std::string> take() { return std::move(texts_); }

 private:
  std::vector<std::string> texts_;
};

template <class T>
bool isValue(const DataFolder& folder, std::string_view key, const T& expected) {
  const auto* value = folder.setting(std::string(key));
  return value != nullptr && *value == PropertyListValue(expected);
}

}  // namespace

Acknowledged::Acknowledged(const RunResult& run) {
  const auto complete = [](const std::string& text) { return text.substr(0, text.rfind('\n') + 1); };
  std::istringstream log(complete(run.errors));
  for (std::string line; std::getline(log, line);) {
    const auto startOf = [&line](std::string_view text) {
      const auto at = line.find(text);
      return at == std::string::npos ? at : at + text.size();
    };
    if (const auto at = startOf("EventTracker - Tracked event: "); at != std::string::npos) {
      events.push_back(line.substr(at, line.find(" with parameters", at) - at));
    } else if (startOf("EventTracker - Cleared all tracked events") != std::string::npos) {
      cleared = true;
      clearedEvents.insert(events.begin(), events.end());
      events.clear();
    } else if (startOf("ConversionTrackingManager - Saved last window value") != std::string::npos) {
      ++windowValues;
    } else if (startOf(" cannot be used: ") != std::string::npos ||
               startOf(" cannot be created: ") != std::string::npos) {
      standInStore = true;
    }
  }
  std::istringstream output(complete(run.output));
  for (std::string line; std::getline(output, line);) {
    const boost::json::object call = boost::json::parse(line).as_object();
    if (call.contains("platform")) {
      const boost::json::value& coarse = call.at("coarseValue");
      platformCalls.push_back(std::to_string(call.at("fineValue").as_int64()) + " " +
                              (coarse.is_null() ? "nil" : std::string(coarse.as_string())));
    }
  }
}

std::vector<std::string> lossesAfterRun(const Expectation& expected, const DataFolder& now) {
  Losses losses;
  const DataFolder& before = expected.before;
  const Acknowledged& told = expected.acknowledged;
  losses.expectSound(before, now);

  const auto areGone = [&now](const auto& names) {
    return std::none_of(names.begin(), names.end(), [&now](const auto& name) { return Losses::contains(now, name); });
  };
  if (told.cleared && !expected.writesFailed) {
    losses.expect(areGone(before.history) && areGone(told.clearedEvents), "an event has come back after the reset");
  }
  // A reset that has begun may have forgotten the events already, but all of them together.
  const bool mayBeGone =
      expected.resets && (told.cleared ? areGone(before.history) : areGone(before.history) && areGone(told.events));
  if (!mayBeGone) {
    losses.expectEvents(now, before.history, "of an earlier run");
  }
  if (!mayBeGone || told.cleared) {
    losses.expectEvents(now, told.events, "that was tracked");
  }

  const auto isOldOr = [&](std::string_view key, const PropertyListValue& added) {
    const auto* old = before.setting(std::string(key));
    const auto* value = now.setting(std::string(key));
    return value == nullptr ? old == nullptr || expected.resets : *value == added || (old != nullptr && *value == *old);
  };
  losses.expect(isOldOr(Config::quillmarVerificationKey, expected.key) ||
                    (expected.resets && isValue(now, Config::quillmarVerificationKey, expected.key)),
                "the key is neither the old nor the new one");
  losses.expect(isOldOr(Config::serverAppId, "development-app"), "another app identifier");
  losses.expect(isOldOr(Config::sdkEnabled, true), "another switch");
  const auto* fetched = now.setting(std::string(Config::lastConversionValuesFetchTimestamp));
  losses.expect(
      fetched == nullptr
          ? expected.resets || before.setting(std::string(Config::lastConversionValuesFetchTimestamp)) == nullptr
          : fetched->as<PropertyListValue::Date>() != nullptr,
      "the date of the last fetch is gone");

  // The platform is called before the value is saved, so the value may be one behind the calls and what was said of it.
  std::vector<std::string> values{lastWindowValueOf(before)};
  values.insert(values.end(), told.platformCalls.begin(), told.platformCalls.end());
  const auto first = values.begin() + static_cast<std::ptrdiff_t>(
                                          expected.writesFailed ? 0 : std::min(told.windowValues, values.size() - 1));
  losses.expect(std::find(first, values.end(), lastWindowValueOf(now)) != values.end(),
                "the last window value is " + lastWindowValueOf(now) + ", neither the old nor the new one");

  losses.expect(!now.configuration || now.configuration->empty() || now.configuration == before.configuration ||
                    now.configuration == expected.configuration,
                "the configuration file is torn");
  losses.expect(!now.attribution || now.attribution->empty() || now.attribution == before.attribution ||
                    now.attribution == expected.attribution || expected.attribution.find(*now.attribution) == 0,
                "the attribution file has strange content");
  return losses.take();
}

std::vector<std::string> lossesAfterRestart(const DataFolder& before, const DataFolder& now, const RunResult& restart,
                                            const std::string& event, const std::string& key,
                                            const std::string& configuration) {
  Losses losses;
  const Acknowledged told(restart);
  losses.expect(restart.endedWell(), "the next start did not end well");
  losses.expect(!told.standInStore, "the next start could not use the settings");
  losses.expect(restart.output.find(R"("drained":true)") != std::string::npos,
                "the next start did not finish its work");
  losses.expectSound(before, now);
  losses.expectEvents(now, before.history, "at the next start");
  losses.expectEvents(now, {event}, "of the next start");
  losses.expect(now.setting(std::string(Config::quillMarId)) != nullptr &&
                    now.setting(std::string(Config::firstRunDateKey)) != nullptr,
                "the next start has no install identifier");
  losses.expect(isValue(now, Config::quillmarVerificationKey, key), "the next start has another key");
  losses.expect(isValue(now, Config::serverAppId, "development-app") && isValue(now, Config::sdkEnabled, true),
                "the next start has not stored what the service sent");
  losses.expect(now.configuration == configuration, "the next fetch did not mend the configuration");
  return losses.take();
}

}  // namespace quillmar::sweep
