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

#include "FindingsOutput.h"
#include "Insight/InstallInspection.h"
#include "InstallFolder.h"
#include "JsonOutput.h"
#include "Logging/Controls.h"
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

constexpr const char* configurationFile = "documents/Quillmar/quill-mar-conv-val.json";
constexpr const char* attributionFile = "documents/asa_attribution_data.json";
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

template <class Value>
json::value orNull(const std::optional<Value>& value) {
  return value ? json::value(*value) : json::value(nullptr);
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
  json::object object{{"fetched", timeJson(report.fetched)}, {"rules", orNull(report.rules)}};
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

std::string describe(const SentRule& rule) {
  return fmt::format("rule \"{}\", fine {}, coarse {}", rule.key,
                     rule.fineValue ? std::to_string(*rule.fineValue) : "-",
                     rule.coarseValue ? rawValue(*rule.coarseValue) : "-");
}

/// The report as a text of lines.
class Text {
 public:
  explicit Text(std::ostream& output) : output_(output) {}

  void write(const InstallReport& report, const std::string& folder) {
    writeInstall(report);
    writeConfiguration(report, folder);
    writeHistory(report);
    line("Last value       {}{}", report.lastValue ? describe(report.lastValue->rule) : "none",
         report.lastValue && report.lastValue->locked ? ", locked" : "");
    line("Attribution      {}", report.attribution.value_or("none"));
    writeOutlook(report);
    for (const std::string& problem : report.problems) {
      line("problem: {}", problem);
    }
  }

 private:
  /// What comes from files is written without what would break out of the line.
  template <class... Content>
  void line(fmt::format_string<Content...> format, Content&&... content) {
    output_ << withoutControls(fmt::format(format, std::forward<Content>(content)...)) << '\n';
  }

  void writeInstall(const InstallReport& report) {
    line("Install          {}", report.identifier.value_or("no identifier"));
    line("First run        {}", report.firstRun ? timestamp(*report.firstRun) : "none");
    if (report.window) {
      line("Window           {}, day {}; {} left, with today", static_cast<int>(*report.window), report.day.value_or(0),
           counted(static_cast<std::size_t>(report.daysLeft), "day"));
    } else {
      line("Window           none: on day {} no window is open", report.day.value_or(0));
    }
    line("Key              {}", report.hasKey ? "stored" : "none");
    line("App              {}{}", report.appId.value_or("unknown"),
         report.enabled ? "" : ", switched off by the service: events are dropped");
  }

  void writeConfiguration(const InstallReport& report, const std::string& folder) {
    line("Configuration    {}, fetched {}", report.rules ? counted(*report.rules, "rule") : "none that can be used",
         report.fetched ? timestamp(*report.fetched) : "never");
    if (report.check) {
      writeFindings(folder + "/" + configurationFile, *report.check, insight::Severity::warning, output_);
    }
  }

  void writeHistory(const InstallReport& report) {
    line("History          {}", report.history.empty() ? "no events" : counted(report.history.size(), "name"));
    for (const auto& events : report.history) {
      const std::string revenue = events.withRevenue == 0
                                      ? ""
                                      : fmt::format(", {} with revenue from {} to {}, {} in all", events.withRevenue,
                                                    events.lowestRevenue, events.highestRevenue, events.totalRevenue);
      line("  {}: {} from {} to {}{}", events.name, events.count, timestamp(events.first), timestamp(events.last),
           revenue);
    }
  }

  void writeOutlook(const InstallReport& report) {
    std::string keys;
    for (const std::string& key : report.complete) {
      keys += (keys.empty() ? "" : ", ") + key;
    }
    line("Complete now     {}", keys.empty() ? "no rule" : keys);
    if (report.next.empty()) {
      line("Next event       sends nothing");
    }
    for (const auto& [event, sent] : report.next) {
      const bool isFirst = &event == &report.next.front().event;
      const std::string name = report.next.size() == 1 ? "any" : isFirst ? "any other" : insight::describe({event});
      line("Next event       {}: {}", name, sent ? describe(*sent) : "nothing");
    }
  }

  std::ostream& output_;
};

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
  files.configuration = folder.read(configurationFile);
  files.attribution = folder.read(attributionFile);
  InstallReport report = insight::inspectInstall(files, *platform.clock);
  report.problems.insert(report.problems.begin(), problems.begin(), problems.end());
  if (options_.json) {
    JsonLineWriter(output).write({{"install", installJson(report)}});
  } else {
    Text(output).write(report, options_.dataDirectory);
  }
  return report.problems.empty() ? healthy : damaged;
}

}  // namespace quillmar::cli
