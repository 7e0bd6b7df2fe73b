#include "JsonOutput.h"

#include <boost/json/serialize.hpp>
#include <boost/json/value_from.hpp>
#include <ctime>
#include <ostream>

namespace quillmar::cli {

namespace json = boost::json;

JsonLineWriter::JsonLineWriter(std::ostream& output) : output_(&output) {}

void JsonLineWriter::write(const json::object& line) {
  const std::string text = json::serialize(line) + '\n';
  const std::lock_guard lock(mutex_);
  if (output_ != nullptr) {
    *output_ << text << std::flush;
  }
}

void JsonLineWriter::close() {
  const std::lock_guard lock(mutex_);
  output_ = nullptr;
}

std::string timestamp(platform::Clock::TimePoint instant) {
  const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(instant).time_since_epoch().count();
  std::tm parts{};
  char text[32];
  gmtime_r(&seconds, &parts);
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts));
}

json::object toJson(const simulated::PlatformCall& call) {
  return {{"platform", call.interface},
          {"fineValue", orNull(call.fineValue)},
          {"coarseValue", orNull(call.coarseValue)},
          {"lockWindow", orNull(call.lockWindow)},
          {"at", timestamp(call.at)}};
}

json::value orNull(const std::optional<CoarseValue>& value) {
  return value ? json::value(rawValue(*value)) : json::value(nullptr);
}

json::value orNull(const std::string& text) {
  return text.empty() ? json::value(nullptr) : json::value(text);
}

namespace {

json::value choiceToJson(const Decision::Choice& choice) {
  json::array filledIn;
  if (choice.fineFilledIn) {
    filledIn.emplace_back("fineValue");
  }
  if (choice.coarseFilledIn) {
    filledIn.emplace_back("coarseValue");
  }
  return json::object{{"key", choice.key},
                      {"fineValue", orNull(choice.fineValue)},
                      {"coarseValue", orNull(choice.coarseValue)},
                      {"filledIn", std::move(filledIn)},
                      {"filledInFrom", orNull(choice.filledInFrom)},
                      {"lockWindow", choice.locksWindow},
                      {"lockReason", orNull(choice.lockReason)}};
}

const char* name(Decision::Answer answer) {
  switch (answer) {
    case Decision::Answer::success:
      return "success";
    case Decision::Answer::failure:
      return "failure";
    default:
      return nullptr;
  }
}

}  // namespace

json::object toJson(const Decision& decision) {
  json::array rules;
  for (const Decision::Rule& rule : decision.rules) {
    rules.push_back(json::object{{"key", rule.key},
                                 {"complete", rule.fineComplete || rule.coarseComplete},
                                 {"fineValue", orNull(rule.fineValue)},
                                 {"fineComplete", rule.fineComplete},
                                 {"coarseValue", orNull(rule.coarseValue)},
                                 {"coarseComplete", rule.coarseComplete},
                                 {"missing", json::value_from(rule.missing)}});
  }
  const char* const answer = name(decision.answer);
  json::object record;
  record["event"] = decision.event;
  record["window"] = decision.window ? json::value(static_cast<int>(*decision.window)) : json::value(nullptr);
  record["rules"] = std::move(rules);
  record["ranking"] = json::value_from(decision.ranking);
  record["chosen"] = decision.choice ? choiceToJson(*decision.choice) : json::value(nullptr);
  record["interface"] = orNull(decision.interface);
  record["answer"] = answer != nullptr ? json::value(answer) : json::value(nullptr);
  record["error"] = orNull(decision.error);
  record["outcome"] = rawValue(decision.outcome);
  return {{"decision", std::move(record)}};
}

json::object toJson(const QuillmarStatistics& statistics) {
  return {{"sent", statistics.sent},
          {"dropped", statistics.dropped},
          {"parked", statistics.parked},
          {"logged", statistics.logged},
          {"failed", statistics.failed}};
}

json::object outboxToJson(const QuillmarStatistics& statistics) {
  return {{"kept", statistics.kept},
          {"unsent", statistics.unsent},
          {"refused", statistics.refused},
          {"expired", statistics.expired},
          {"displaced", statistics.displaced}};
}

json::object toJson(const QuillmarASAAttributionStatistics& statistics) {
  return {{"sent", statistics.sent},
          {"failed", statistics.failed},
          {"unverified", statistics.unverified},
          {"skipped", statistics.skipped}};
}

json::object toJson(const QuillmarState& state) {
  return {{"window", orNull(state.window)},
          {"appId", orNull(state.appId)},
          {"enabled", state.enabled},
          {"keyValid", state.verificationKeyValid}};
}

json::object toJson(const QuillmarHealth& health) {
  json::object ended;
  for (std::size_t i = 0; i < eventEndCount; ++i) {
    ended[rawValue(static_cast<EventEnd>(i))] = health.ended[i];
  }
  json::object record;
  record["configurationAge"] =
      health.configurationAge ? json::value(health.configurationAge->count()) : json::value(nullptr);
  record["fetchError"] = orNull(health.fetchError);
  record["keyValid"] = health.verificationKeyValid;
  record["failuresInARow"] = health.failuresInARow;
  record["sent"] = health.sent;
  record["inherited"] = health.inherited;
  record["queued"] = health.queued;
  record["underWay"] = health.underWay;
  record["parked"] = health.parked;
  record["kept"] = health.kept;
  record["ended"] = std::move(ended);
  record["unsent"] = health.unsent;
  record["lastLogged"] = nullptr;
  if (const auto& logged = health.lastLogged) {
    record["lastLogged"] = json::object{{"event", logged->name}, {"at", timestamp(logged->at)}};
  }
  record["lastPlatformCall"] = nullptr;
  if (const auto& call = health.lastPlatformCall) {
    const char* const answer = name(call->answer);
    record["lastPlatformCall"] =
        json::object{{"interface", call->interface},
                     {"at", timestamp(call->at)},
                     {"answer", answer != nullptr ? json::value(answer) : json::value(nullptr)},
                     {"error", orNull(call->error)}};
  }
  return {{"health", std::move(record)}};
}

json::object toJson(const std::map<std::string, std::uint64_t>& counts) {
  json::object object;
  for (const auto& [name, count] : counts) {
    object[name] = count;
  }
  return object;
}

}  // namespace quillmar::cli
