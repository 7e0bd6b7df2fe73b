// What an install has stored, all of it possibly damaged.
#include "Insight/InstallInspection.h"

#include <set>

#include "Conversion/EventTracker.h"
#include "Model/ConversionValuesCoding.h"
#include "Platform/PropertyListCoding.h"
#include "Promises.h"
#include "quillmar/Config.h"
#include "quillmar/simulated/SimulatedPlatform.h"

using namespace quillmar;

void fuzz::look(std::string_view bytes) {
  const std::string text(bytes);
  const simulated::SimulatedPlatform simulated{platform::Clock::TimePoint(std::chrono::hours(24 * 365 * 31 + 24 * 8))};
  const insight::InstallFiles files{std::make_shared<simulated::InMemoryUserDefaults>(), text, text};
  files.settings->set(EventTracker::completedEventsKey, platform::PropertyListValue::Data{text});
  if (const auto value = platform::decodePropertyList(text)) {
    files.settings->set(Config::lastWindowValue, *value);
    files.settings->set(Config::firstRunDateKey, *value);
    files.settings->set(Config::lastConversionValuesFetchTimestamp, *value);
  }
  const insight::InstallReport report = insight::inspectInstall(files, *simulated.clock);
  std::set<std::string> names;
  for (const auto& events : report.history) {
    names.insert(events.name);
    require(events.count > 0 && events.withRevenue <= events.count && events.first <= events.last, "counts are right");
  }
  require(names == EventTracker(files.settings, simulated.clock).getTrackedEventNames(), "the tracker reads the same");
  require(report.rules.has_value() == fuzz::decoded<ConversionValues>(text).has_value(), "so does the configuration's");
  require(report.age().has_value() == report.fetched.has_value(), "what was fetched has an age");
  require(report.complete.empty() || report.next.empty() || report.next.front().sent, "what is complete is sent next");
}
