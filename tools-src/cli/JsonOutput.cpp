#include "JsonOutput.h"

#include <boost/json/serialize.hpp>
#include <ctime>
#include <ostream>

namespace quillmar::cli {
namespace {

namespace json = boost::json;

template <class Value>
json::value orNull(const std::optional<Value>& value) {
  return value ? json::value(*value) : json::value(nullptr);
}

}  // namespace

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

json::object toJson(const std::map<std::string, std::uint64_t>& counts) {
  json::object object;
  for (const auto& [name, count] : counts) {
    object[name] = count;
  }
  return object;
}

}  // namespace quillmar::cli
