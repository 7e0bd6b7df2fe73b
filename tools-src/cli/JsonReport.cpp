#include <boost/json.hpp>
#include <variant>

#include "Duration.h"
#include "JsonOutput.h"
#include "SimulationReport.h"

namespace quillmar::cli {
namespace {

namespace json = boost::json;

json::value parametersJson(const EventStep& event) {
  if (!event.params) {
    return nullptr;
  }
  json::object object;
  for (const auto& [param, value] : *event.params) {
    object[key(param)] = std::visit([](const auto& content) { return json::value(content); }, value.storage());
  }
  return object;
}

json::value valueJson(const std::optional<SentValue>& value) {
  if (!value) {
    return nullptr;
  }
  return json::object{{"key", value->key},
                      {"fineValue", value->fineValue},
                      {"coarseValue", orNull(value->coarseValue)},
                      {"completedEvents", json::value_from(value->completedEvents)}};
}

/// The report as JSON Lines, the last of which is {"final":{...}}, or {"health":{...}} if it is wanted.
class JsonReport final : public SimulationReport {
 public:
  explicit JsonReport(std::ostream& output) : writer_(output) {}

  void begin(const SimulateOptions& options, const SimulatedInstall& install) override {
    explain_ = options.explain;
    health_ = options.health;
    json::object line;
    line["simulation"] = json::object{{"osVersion", options.osVersion},
                                      {"days", options.days},
                                      {"firstLaunch", timestamp(SimulatedInstall::firstLaunch())},
                                      {"ad", rawValue(install.rules().ad())}};
    writer_.write(line);
  }

  void write(const std::string& name, const EventStep* event, const StepResult& result, const QuillmarState&) override {
    json::object line;
    line["at"] = formatDuration(result.at);
    line["time"] = timestamp(SimulatedInstall::firstLaunch() + result.at);
    line["window"] = orNull(result.window);
    line["platformWindow"] = orNull(result.platformWindow);
    line["step"] = name;
    if (event != nullptr) {
      line["event"] = event->name;
      line["params"] = parametersJson(*event);
    }
    line["events"] = toJson(result.change);
    line["sent"] = valueJson(result.sent);
    json::array calls;
    for (const simulated::PlatformCall& call : result.calls) {
      json::object object = toJson(call);
      object["verdict"] = rawValue(call.verdict.outcome);
      const std::string_view reason = rawValue(call.verdict.reason);
      object["reason"] = reason.empty() ? json::value(nullptr) : json::value(reason);
      calls.push_back(std::move(object));
    }
    line["calls"] = std::move(calls);
    line["locked"] = locks(result);
    writer_.write(line);
    if (explain_) {
      for (const Decision& decision : result.decisions) {
        writer_.write(toJson(decision));
      }
    }
  }

  void end(const SimulatedInstall& install) override {
    const simulated::PostbackRules rules = install.rules();
    for (const simulated::Postback& postback : rules.postbacks()) {
      json::object line;
      line["postback"] =
          json::object{{"ad", rawValue(rules.ad())},
                       {"index", postback.index},
                       {"tier", postback.tier},
                       {"fineValue", orNull(postback.fineValue)},
                       {"coarseValue", orNull(postback.coarseValue)},
                       {"finalizedBy", rawValue(postback.finalizedBy)},
                       {"earliest", formatDuration(std::chrono::floor<std::chrono::seconds>(postback.earliest))},
                       {"latest", formatDuration(std::chrono::floor<std::chrono::seconds>(postback.latest))}};
      writer_.write(line);
    }
    json::array lives;
    for (std::size_t index = 0; index < windows().size(); ++index) {
      const Window& window = windows()[index];
      json::object life;
      life["window"] = index;
      life["last"] = valueJson(window.last);
      life["platformCalls"] = window.calls;
      life["lockedAt"] = window.lockedAt ? json::value(formatDuration(*window.lockedAt)) : json::value(nullptr);
      lives.push_back(std::move(life));
    }
    json::object final;
    final["windows"] = std::move(lives);
    const QuillmarStatistics events = install.quillmar().statistics();
    final["events"] = toJson(events);
    if (events.kept > 0) {
      final["outbox"] = outboxToJson(events);
    }
    final["requests"] = toJson(install.requestCounts());
    final["state"] = toJson(install.quillmar().state());
    json::object line;
    line["final"] = std::move(final);
    writer_.write(line);
    if (health_) {
      writer_.write(toJson(install.quillmar().health()));
    }
  }

 private:
  JsonLineWriter writer_;
  bool explain_ = false;
  bool health_ = false;
};

}  // namespace

std::unique_ptr<SimulationReport> makeJsonReport(std::ostream& output) {
  return std::make_unique<JsonReport>(output);
}

}  // namespace quillmar::cli
