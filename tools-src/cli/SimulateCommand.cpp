#include "SimulateCommand.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

#include "Duration.h"
#include "InputLines.h"
#include "PageFile.h"
#include "ServiceConfiguration.h"
#include "SimulatedInstall.h"
#include "SimulationReport.h"

namespace quillmar::cli {
namespace {

using std::chrono::seconds;

constexpr seconds day{86400};

struct ScriptStep {
  seconds at;
  Step step;
  bool automatic = false;
};

/// The good lines, each with its time.
std::vector<ScriptStep> readScript(InputLines& lines, seconds end) {
  std::vector<ScriptStep> script;
  seconds time{0};
  while (std::optional<InputLine> line = lines.next()) {
    const seconds at = line->at.value_or(time);
    if (at < time) {
      lines.reject("$.at: " + formatDuration(at) + " is earlier than the line before, " + formatDuration(time));
    } else if (at > end) {
      lines.reject("$.at: " + formatDuration(at) + " is after the end, " + formatDuration(end) + " (see --days)");
    } else {
      time = at;
      script.push_back({at, std::move(line->step)});
    }
  }
  return script;
}

void addActivations(std::vector<ScriptStep>& script, seconds end) {
  const std::vector<ScriptStep> own = std::exchange(script, {});
  seconds nextDay = day;
  const auto addUntil = [&](seconds limit) {
    for (; nextDay <= limit; nextDay += day) {
      script.push_back({nextDay, ActivateStep{platform::Notification::applicationDidBecomeActive}, true});
    }
  };
  for (const ScriptStep& step : own) {
    addUntil(step.at);
    script.push_back(step);
  }
  addUntil(end);
}

std::string nameOf(const Step& step) {
  if (std::holds_alternative<EventStep>(step)) {
    return "event";
  }
  if (std::holds_alternative<ActivateStep>(step)) {
    return "activate";
  }
  if (const auto* consent = std::get_if<ConsentStep>(&step)) {
    return consent->grant ? "consent" : "no consent";
  }
  if (const auto* network = std::get_if<NetworkStep>(&step)) {
    return network->pause ? "pause" : "resume";
  }
  return std::holds_alternative<ResetStep>(step) ? "reset" : "configure";
}

}  // namespace

SimulateCommand::SimulateCommand(SimulateOptions options) : options_(std::move(options)) {}

int SimulateCommand::run(std::istream& input, std::ostream& output, std::ostream& errors) {
  SimulatedInstall install(makeServiceLogic("simulate", options_.config, {}), options_);
  const seconds end = options_.days * day;
  InputLines lines(input, errors, options_.events, InputTime::script);
  std::vector<ScriptStep> script = readScript(lines, end);
  const bool activatesItself = std::any_of(script.begin(), script.end(), [](const ScriptStep& step) {
    return std::holds_alternative<ActivateStep>(step.step);
  });
  if (!activatesItself) {
    addActivations(script, end);
  }

  std::vector<std::unique_ptr<SimulationReport>> reports;
  reports.push_back(options_.json ? makeJsonReport(output) : makeTextReport(output));
  std::optional<PageFile> page;
  if (!options_.html.empty()) {
    page.emplace("simulate", options_.html);
    reports.push_back(makeHtmlReport(page->output(), readConfiguration("simulate: --config", options_.config)));
  }
  const auto tell = [&](const std::string& name, const EventStep* event, const StepResult& result, bool evenIfQuiet) {
    for (const auto& report : reports) {
      if (evenIfQuiet || !result.calls.empty()) {
        report->step(name, event, result, install.quillmar().state());
      }
    }
  };
  for (const auto& report : reports) {
    report->begin(options_, install);
  }
  tell("first launch", nullptr, install.perform(ConfigureStep{"simulated-key"}), true);
  for (const ScriptStep& step : script) {
    tell("meanwhile", nullptr, install.advanceTo(step.at), false);
    tell(nameOf(step.step), std::get_if<EventStep>(&step.step), install.perform(step.step), !step.automatic);
  }
  tell("meanwhile", nullptr, install.advanceTo(end), false);
  for (const auto& report : reports) {
    report->end(install);
  }
  if (page) {
    page->finish();
  }
  return lines.badLines() == 0 ? 0 : 1;
}

}  // namespace quillmar::cli
