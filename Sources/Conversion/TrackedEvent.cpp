#include "Conversion/TrackedEvent.h"

#include <algorithm>
#include <chrono>

#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar {

namespace {

using Seconds = std::chrono::duration<double>;
using TimePoint = platform::Clock::TimePoint;

constexpr std::chrono::sys_seconds referenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);

TimePoint timeOf(double secondsSinceReference) {
  // Some 250 years either way: what a clock that counts nanoseconds can hold.
  const Seconds since(std::clamp(secondsSinceReference, -8e9, 8e9));
  return referenceDate + std::chrono::round<TimePoint::duration>(since);
}

}  // namespace

std::optional<double> TrackedEvent::revenue() const {
  const auto found = parameters.find("revenue");
  return found != parameters.end() ? std::optional(found->second) : std::nullopt;
}

void TrackedEvent::encode(JsonWriter& writer) const {
  writer.beginObject().member("name", name).key("parameters").beginObject();
  for (const auto& [parameter, value] : parameters) {
    writer.key(parameter).number(value);
  }
  // In two steps: the difference itself may be more than a clock can hold.
  const auto whole = std::chrono::time_point_cast<std::chrono::seconds>(timestamp);
  const Seconds sinceReference = Seconds(whole - referenceDate) + Seconds(timestamp - whole);
  writer.endObject().key("timestamp").number(sinceReference.count()).endObject();
}

TrackedEvent TrackedEvent::decode(const JsonReader& reader) {
  TrackedEvent event;
  event.name = reader.required("name").string();
  const JsonReader members = reader.required("parameters");
  members.forEachMember([&event](std::string_view parameter, const JsonReader& value) {
    event.parameters.insert_or_assign(std::string(parameter), value.number());
  });
  event.timestamp = timeOf(reader.required("timestamp").number());
  return event;
}

}  // namespace quillmar
