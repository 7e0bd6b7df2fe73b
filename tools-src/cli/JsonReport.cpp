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
                      {"coarseValue", value->coarseValue ? json::value(*value->coarseValue) : json::value(nullptr)},
                      {"completedEvents", json::value_from(value->completedEvents)}};
}

/// The report as JSON Lines, the last of which is {"final":{...}}.
class JsonReport final : public SimulationReport {
 public:
  explicit JsonReport(std::ostream& output) : writer_(output) {}

  void begin(const std::string& osVersion, int days) override {
    json::object line;
    line["simulation"] = json::object{
        {"osVersion", osVersion}, {"days", days}, {"firstLaunch", timestamp(SimulatedInstall::firstLaunch())}};
    writer_.write(line);
  }

  void write(const std::string& name, const EventStep* event, const StepResult& result, const QuillmarState&) override {
    json::object line;
    line["at"] = formatDuration(result.at);
    line["time"] = timestamp(SimulatedInstall::firstLaunch() + result.at);
    line["window"] = result.window ? json::value(*result.window) : json::value(nullptr);
    line["step"] = name;
    if (event != nullptr) {
      line["event"] = event->name;
      line["params"] = parametersJson(*event);
    }
    line["events"] = toJson(result.change);
    line["sent"] = valueJson(result.sent);
    json::array calls;
    for (const simulated::PlatformCall& call : result.calls) {
      calls.push_back(toJson(call));
    }
    line["calls"] = std::move(calls);
    line["locked"] = locks(result);
    writer_.write(line);
  }

  void end(const SimulatedInstall& install) override {
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
  }

 private:
  JsonLineWriter writer_;
};

}  // namespace

std::unique_ptr<SimulationReport> makeJsonReport(std::ostream& output) {
  return std::make_unique<JsonReport>(output);
}

}  // namespace quillmar::cli
