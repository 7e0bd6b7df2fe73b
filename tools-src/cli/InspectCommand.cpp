#include "InspectCommand.h"

#include <fmt/format.h>

#include <boost/json/parse.hpp>
#include <boost/json/value_from.hpp>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Duration.h"
#include "FindingsOutput.h"
#include "Insight/InstallInspection.h"
#include "InstallFolder.h"
#include "InstallPage.h"
#include "InstallText.h"
#include "JsonOutput.h"
#include "PageFile.h"
#include "quillmar/Logger.h"
#include "quillmar/platform/Platform.h"
#include "quillmar/simulated/RecordingLogSink.h"

namespace quillmar::cli {
namespace {

namespace json = boost::json;
using insight::InstallReport;
using insight::SentRule;

constexpr int healthy = 0;
constexpr int damaged = 1;

constexpr const char* suite = "tech.quill-mar.quillmaruserdefaults";

/// Opens the settings as the library does: the suite, or the standard store when that cannot be used. What the adapter
/// has to say goes to `problems`.
std::shared_ptr<platform::UserDefaults> openSettings(const InstallFolder& folder, platform::Platform& platform,
                                                     std::vector<std::string>& problems) {
  const auto sink = std::make_shared<simulated::RecordingLogSink>();
  platform.logSink = sink;
  platform::setSharedPlatform(platform);
  Logger::setLogLevel(LogLevel::error);
  std::shared_ptr<platform::UserDefaults> settings;
  if (folder.has(fmt::format("settings/{}.sqlite", suite))) {
    settings = platform.userDefaults->openSuite(suite);
  } else {
    problems.emplace_back("There is no settings file: the library was never configured on this folder.");
  }
  if (!settings) {
    settings = platform.userDefaults->standard();
  }
  Logger::setLogLevel(LogLevel::off);
  for (const auto& line : sink->lines()) {
    constexpr std::string_view source = "UserDefaults - ";
    const std::size_t begin = line.text.find(source);
    problems.push_back(folder.inOriginalNames(line.text.substr(begin == line.text.npos ? 0 : begin + source.size())));
  }
  return settings;
}

json::value ruleJson(const std::optional<SentRule>& rule) {
  if (!rule) {
    return nullptr;
  }
  json::object object{{"key", rule->key}, {"fineValue", orNull(rule->fineValue)}};
  object["coarseValue"] = rule->coarseValue ? json::value(rawValue(*rule->coarseValue)) : json::value(nullptr);
  return object;
}

json::value timeJson(const std::optional<InstallReport::TimePoint>& time) {
  return time ? json::value(timestamp(*time)) : json::value(nullptr);
}

json::object eventsJson(const InstallReport::Events& events) {
  json::object object{{"name", events.name},
                      {"count", events.count},
                      {"first", timestamp(events.first)},
                      {"last", timestamp(events.last)}};
  if (events.withRevenue > 0) {
    object["revenue"] = {{"count", events.withRevenue},
                         {"lowest", events.lowestRevenue},
                         {"highest", events.highestRevenue},
                         {"total", events.totalRevenue}};
  }
  return object;
}

json::value lastValueJson(const InstallReport& report) {
  if (!report.lastValue) {
    return nullptr;
  }
  json::object object = ruleJson(report.lastValue->rule).as_object();
  object["locked"] = report.lastValue->locked;
  object["completedEvents"] = json::value_from(report.lastValue->completedEvents);
  return object;
}

json::object configurationJson(const InstallReport& report) {
  json::object object{{"fetched", timeJson(report.fetched)},
                      {"age", report.age() ? json::value(formatDuration(*report.age())) : json::value(nullptr)},
                      {"rules", orNull(report.rules)}};
  json::array findings;
  if (report.check) {
    for (const insight::Finding& finding : report.check->findings) {
      findings.push_back(toJson(finding));
    }
  }
  object["findings"] = std::move(findings);
  return object;
}

json::object installJson(const InstallReport& report) {
  json::array history;
  for (const auto& events : report.history) {
    history.push_back(eventsJson(events));
  }
  json::array next;
  for (const auto& [event, sent] : report.next) {
    next.push_back({{"event", event.name}, {"revenue", orNull(event.revenue)}, {"sent", ruleJson(sent)}});
  }
  const auto window = report.window ? std::optional(static_cast<int>(*report.window)) : std::nullopt;
  return {{"identifier", orNull(report.identifier)},
          {"firstRun", timeJson(report.firstRun)},
          {"day", orNull(report.day)},
          {"window", orNull(window)},
          {"daysLeft", report.daysLeft},
          {"hasKey", report.hasKey},
          {"enabled", report.enabled},
          {"appId", orNull(report.appId)},
          {"configuration", configurationJson(report)},
          {"history", std::move(history)},
          {"lastValue", lastValueJson(report)},
          {"attribution", report.attribution ? json::parse(*report.attribution) : json::value(nullptr)},
          {"complete", json::value_from(report.complete)},
          {"next", std::move(next)},
          {"problems", json::value_from(report.problems)}};
}

}  // namespace

InspectCommand::InspectCommand(InspectOptions options) : options_(std::move(options)) {}

int InspectCommand::run(std::ostream& output) {
  const InstallFolder folder(options_.dataDirectory);
  platform::DefaultPlatformOptions copy;
  copy.dataDirectory = folder.path();
  platform::Platform platform = platform::makeDefaultPlatform(copy);
  std::vector<std::string> problems;
  insight::InstallFiles files;
  files.settings = openSettings(folder, platform, problems);
  files.configuration = folder.read(InstallFolder::configurationFile);
  files.attribution = folder.read(InstallFolder::attributionFile);
  InstallReport report = insight::inspectInstall(files, *platform.clock);
  report.problems.insert(report.problems.begin(), problems.begin(), problems.end());
  if (options_.json) {
    JsonLineWriter(output).write({{"install", installJson(report)}});
  } else {
    writeInstall(output, report, options_.dataDirectory);
  }
  if (!options_.html.empty()) {
    PageFile page("inspect", options_.html);
    writeInstallPage(page.output(), report, options_.dataDirectory, files.configuration.value_or(""));
    page.finish();
  }
  return report.problems.empty() ? healthy : damaged;
}

}  // namespace quillmar::cli
