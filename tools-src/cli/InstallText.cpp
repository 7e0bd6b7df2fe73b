#include "InstallText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <ostream>

#include "Duration.h"
#include "FindingsOutput.h"
#include "InstallFolder.h"
#include "JsonOutput.h"
#include "Logging/Controls.h"

namespace quillmar::cli {
namespace {

using insight::InstallReport;
using insight::SentRule;

std::string describe(const SentRule& rule) {
  return fmt::format("rule \"{}\", fine {}, coarse {}", rule.key,
                     rule.fineValue ? std::to_string(*rule.fineValue) : "-",
                     rule.coarseValue ? rawValue(*rule.coarseValue) : "-");
}

std::string windowOf(const InstallReport& report) {
  if (!report.window) {
    return fmt::format("none: on day {} no window is open", report.day.value_or(0));
  }
  return fmt::format("{}, day {}; {} left, with today", static_cast<int>(*report.window), report.day.value_or(0),
                     counted(static_cast<std::size_t>(report.daysLeft), "day"));
}

std::string configurationOf(const InstallReport& report) {
  std::string text = report.rules ? counted(*report.rules, "rule") : "none that can be used";
  if (!report.fetched) {
    return text + ", fetched never";
  }
  const std::chrono::seconds age = report.age().value();
  return text + fmt::format(", fetched {}, {} {}", timestamp(*report.fetched), formatDuration(abs(age)),
                            age.count() < 0 ? "ahead of the clock" : "ago");
}

}  // namespace

std::vector<Fact> identityOf(const InstallReport& report) {
  return {
      {"Install", report.identifier.value_or("no identifier")},
      {"First run", report.firstRun ? timestamp(*report.firstRun) : "none"},
      {"Window", windowOf(report)},
      {"Key", report.hasKey ? "stored" : "none"},
      {"App",
       report.appId.value_or("unknown") + (report.enabled ? "" : ", switched off by the service: events are dropped")},
      {"Configuration", configurationOf(report)},
  };
}

std::vector<Fact> stateOf(const InstallReport& report) {
  const auto& last = report.lastValue;
  return {
      {"Last value", last ? describe(last->rule) + (last->locked ? ", locked" : "") : "none"},
      {"Attribution", report.attribution.value_or("none")},
      {"Complete now", report.complete.empty() ? "no rule" : fmt::format("{}", fmt::join(report.complete, ", "))},
  };
}

std::vector<Fact> outlookOf(const InstallReport& report) {
  std::vector<Fact> facts;
  for (const auto& [event, sent] : report.next) {
    facts.push_back({facts.empty() ? "any other" : insight::describe({event}), sent ? describe(*sent) : "nothing"});
  }
  if (facts.empty()) {
    return {{"any", "nothing"}};
  }
  if (facts.size() == 1) {
    facts.front().name = "any";
  }
  return facts;
}

std::string revenuesOf(const InstallReport::Events& events) {
  return events.withRevenue == 0 ? ""
                                 : fmt::format("{} with revenue from {} to {}, {} in all", events.withRevenue,
                                               events.lowestRevenue, events.highestRevenue, events.totalRevenue);
}

void writeInstall(std::ostream& output, const InstallReport& report, const std::string& folder) {
  // What comes from files is written without what would break out of the line.
  const auto line = [&output](const std::string& text) { output << withoutControls(text) << '\n'; };
  const auto tell = [&line](const std::vector<Fact>& facts) {
    for (const auto& [name, content] : facts) {
      line(fmt::format("{:<16} {}", name, content));
    }
  };
  tell(identityOf(report));
  if (report.check) {
    writeFindings(folder + "/" + InstallFolder::configurationFile, *report.check, insight::Severity::warning, output);
  }
  tell({{"History", report.history.empty() ? "no events" : counted(report.history.size(), "name")}});
  for (const auto& events : report.history) {
    const std::string revenues = revenuesOf(events);
    line(fmt::format("  {}: {} from {} to {}{}{}", events.name, events.count, timestamp(events.first),
                     timestamp(events.last), revenues.empty() ? "" : ", ", revenues));
  }
  tell(stateOf(report));
  for (const auto& [event, sent] : outlookOf(report)) {
    tell({{"Next event", event + ": " + sent}});
  }
  for (const std::string& problem : report.problems) {
    line("problem: " + problem);
  }
}

}  // namespace quillmar::cli
