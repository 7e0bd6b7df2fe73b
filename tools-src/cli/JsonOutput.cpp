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
    good_ = static_cast<bool>(*output_ << text << std::flush) && good_;
  }
}

void JsonLineWriter::close() {
  const std::lock_guard lock(mutex_);
  output_ = nullptr;
}

bool JsonLineWriter::good() const {
  const std::lock_guard lock(mutex_);
  return good_;
}

std::string timestamp(platform::Clock::TimePoint instant) {
  const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(instant).time_since_epoch().count();
  std::tm parts{};
  char text[32];
  gmtime_r(&seconds, &parts);
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts));
}

json::object toJson(const simulated::PlatformCall& call) {
  json::object object;
  object["platform"] = call.interface;
  object["fineValue"] = orNull(call.fineValue);
  object["coarseValue"] = orNull(call.coarseValue);
  object["lockWindow"] = orNull(call.lockWindow);
  object["at"] = timestamp(call.at);
  return object;
}

json::object toJson(const QuillmarStatistics& statistics) {
  json::object object;
  object["sent"] = statistics.sent;
  object["dropped"] = statistics.dropped;
  object["parked"] = statistics.parked;
  object["logged"] = statistics.logged;
  object["failed"] = statistics.failed;
  return object;
}

json::object toJson(const QuillmarASAAttributionStatistics& statistics) {
  json::object object;
  object["sent"] = statistics.sent;
  object["failed"] = statistics.failed;
  object["unverified"] = statistics.unverified;
  object["skipped"] = statistics.skipped;
  return object;
}

json::object toJson(const QuillmarState& state) {
  json::object object;
  object["window"] = orNull(state.window);
  object["appId"] = orNull(state.appId);
  object["enabled"] = state.enabled;
  object["keyValid"] = state.verificationKeyValid;
  return object;
}

json::object toJson(const std::map<std::string, std::uint64_t>& counts) {
  json::object object;
  for (const auto& [name, count] : counts) {
    object[name] = count;
  }
  return object;
}

}  // namespace quillmar::cli
