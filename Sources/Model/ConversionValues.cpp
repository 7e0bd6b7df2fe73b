#include "quillmar/ConversionValues.h"

#include "Model/ConversionValuesCoding.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>

#include "Json/DecimalNumber.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar {

namespace {

constexpr std::array<std::string_view, 3> windowNames{"window0", "window1", "window2"};
constexpr std::array<std::string_view, 3> coarseNames{"high", "medium", "low"};
constexpr std::array<std::string_view, 2> lockTypeNames{"time", "high"};

/// Names in the order of the enumerators.
template <class Enum, std::size_t Count>
std::optional<Enum> fromName(const std::array<std::string_view, Count>& names, std::string_view name) noexcept {
  for (std::size_t i = 0; i < Count; ++i) {
    if (names[i] == name) {
      return static_cast<Enum>(i);
    }
  }
  return std::nullopt;
}

template <class Value>
std::map<Window, Value> byWindow(const std::map<std::string, Value, std::less<>>& byName) {
  std::map<Window, Value> result;
  for (const auto& [name, value] : byName) {
    if (const std::optional<Window> window = windowFromRawValue(name)) {
      result.emplace(*window, value);
    }
  }
  return result;
}

std::vector<ConversionValues::RequiredEvent> decodeRequiredEvents(const JsonReader& owner) {
  std::vector<ConversionValues::RequiredEvent> events;
  const JsonReader array = owner.required("requiredEvents");
  events.reserve(array.elementCount());
  array.forEachElement([&events](const JsonReader& event) {
    events.push_back(
        {event.required("name").string(), event.optionalNumber("revenueMin"), event.optionalNumber("revenueMax")});
  });
  return events;
}

void encodeRequiredEvents(JsonWriter& writer, const std::vector<ConversionValues::RequiredEvent>& events) {
  writer.key("requiredEvents").beginArray();
  for (const auto& event : events) {
    writer.beginObject().member("name", event.name);
    writer.optionalMember("revenueMin", event.revenueMin).optionalMember("revenueMax", event.revenueMax).endObject();
  }
  writer.endArray();
}

template <class Enum>
Enum decodeName(const JsonReader& reader, std::optional<Enum> (*fromRawValue)(std::string_view) noexcept) {
  const std::string name = reader.string();
  const std::optional<Enum> value = fromRawValue(name);
  if (!value) {
    reader.fail(DecodingErrorCode::dataCorrupted, fmt::format("\"{}\" is not a known value", name));
  }
  return *value;
}

ConversionValues::WindowValue decodeWindowValue(const JsonReader& reader) {
  ConversionValues::WindowValue value;
  if (const auto fine = reader.optional("fineValue")) {
    const std::int64_t number = fine->required("value").integer();
    value.fineValue = {number, decodeRequiredEvents(*fine)};
  }
  if (const auto coarse = reader.optional("coarseValue")) {
    const CoarseValue level = decodeName(coarse->required("value"), coarseValueFromRawValue);
    value.coarseValue = {level, decodeRequiredEvents(*coarse)};
  }
  return value;
}

void encodeWindowValue(JsonWriter& writer, const ConversionValues::WindowValue& value) {
  writer.beginObject();
  if (value.fineValue) {
    writer.key("fineValue").beginObject().key("value").integer(value.fineValue->value);
    encodeRequiredEvents(writer, value.fineValue->requiredEvents);
    writer.endObject();
  }
  if (value.coarseValue) {
    writer.key("coarseValue").beginObject().member("value", rawValue(value.coarseValue->value));
    encodeRequiredEvents(writer, value.coarseValue->requiredEvents);
    writer.endObject();
  }
  writer.endObject();
}

std::string optionalText(std::optional<double> value) {
  return value ? decimalText(*value) : "nil";
}

// Into one text: a large document is not copied from level to level.

void describe(std::string& text, const std::vector<ConversionValues::RequiredEvent>& events) {
  const char* separator = "[";
  for (const auto& event : events) {
    fmt::format_to(std::back_inserter(text), "{}RequiredEvent(name: \"{}\", revenueMin: {}, revenueMax: {})",
                   std::exchange(separator, ", "), event.name, optionalText(event.revenueMin),
                   optionalText(event.revenueMax));
  }
  text += events.empty() ? "[]" : "]";
}

void describe(std::string& text, const ConversionValues::WindowValue& value) {
  text += "WindowValue(fineValue: ";
  if (value.fineValue) {
    fmt::format_to(std::back_inserter(text), "FineValue(value: {}, requiredEvents: ", value.fineValue->value);
    describe(text, value.fineValue->requiredEvents);
  }
  text += value.fineValue ? "), coarseValue: " : "nil, coarseValue: ";
  if (value.coarseValue) {
    fmt::format_to(std::back_inserter(text),
                   "CoarseValueData(value: {}, requiredEvents: ", rawValue(value.coarseValue->value));
    describe(text, value.coarseValue->requiredEvents);
  }
  text += value.coarseValue ? "))" : "nil)";
}

void describe(std::string& text, const std::vector<ConversionValues::ConversionValue>& values) {
  const char* next = "[";
  for (const auto& value : values) {
    fmt::format_to(std::back_inserter(text), "{}ConversionValue(key: \"{}\", windows: ", std::exchange(next, ", "),
                   value.key);
    const char* separator = "[";
    for (const auto& [name, windowValue] : value.windows) {
      fmt::format_to(std::back_inserter(text), "{}\"{}\": ", std::exchange(separator, ", "), name);
      describe(text, windowValue);
    }
    text += value.windows.empty() ? "[:])" : "])";
  }
  text += values.empty() ? "[]" : "]";
}

}  // namespace

std::map<Window, ConversionValues::WindowValue> ConversionValues::ConversionValue::windowsDict() const {
  return byWindow(windows);
}

const ConversionValues::WindowValue* ConversionValues::ConversionValue::windowValue(Window window) const {
  // The few names differ at their ends; a search of the map would compare them from the front, for each rule anew.
  const std::string_view name = rawValue(window);
  for (const auto& [candidate, value] : windows) {
    if (candidate.size() == name.size() && candidate.back() == name.back() && candidate == name) {
      return &value;
    }
  }
  return nullptr;
}

int ConversionValues::ConversionValue::compareWindowValue(const ConversionValue& other, Window window) const {
  const WindowValue* const mine = windowValue(window);
  const WindowValue* const theirs = other.windowValue(window);
  if (mine == nullptr || theirs == nullptr) {
    return 0;
  }
  const auto order = [](std::int64_t a, std::int64_t b) { return (a > b) - (a < b); };
  if (mine->fineValue && theirs->fineValue && mine->fineValue->value != theirs->fineValue->value) {
    return order(mine->fineValue->value, theirs->fineValue->value);
  }
  // None deliberately ranks above high.
  const auto rank = [](const std::optional<CoarseValueData>& coarse) {
    if (!coarse) {
      return 3;
    }
    switch (coarse->value) {
      case CoarseValue::low:
        return 0;
      case CoarseValue::medium:
        return 1;
      case CoarseValue::high:
        break;
    }
    return 2;
  };
  return order(rank(mine->coarseValue), rank(theirs->coarseValue));
}

ConversionValues::ConversionValues(std::vector<ConversionValue> values_,
                                   std::map<std::string, LockWindowConfiguration, std::less<>> lockWindows_)
    : values(std::move(values_)), lockWindows(std::move(lockWindows_)) {}

ConversionValues::ConversionValues(std::vector<ConversionValue> values_,
                                   const std::map<Window, LockWindowConfiguration>& lockWindowConfigurations)
    : values(std::move(values_)) {
  for (const auto& [window, configuration] : lockWindowConfigurations) {
    lockWindows.emplace(rawValue(window), configuration);
  }
}

std::map<Window, ConversionValues::LockWindowConfiguration> ConversionValues::lockWindowConfigurations() const {
  return byWindow(lockWindows);
}

ConversionValues::ConversionValue Codable<ConversionValues::ConversionValue>::decode(const JsonReader& reader) {
  ConversionValues::ConversionValue value;
  value.key = reader.required("key").string();
  const JsonReader windows = reader.required("windows");
  windows.forEachMember([&value](std::string_view name, const JsonReader& window) {
    value.windows.insert_or_assign(std::string(name), decodeWindowValue(window));
  });
  return value;
}

void Codable<ConversionValues::ConversionValue>::encode(JsonWriter& writer,
                                                        const ConversionValues::ConversionValue& value) {
  writer.beginObject().member("key", value.key).key("windows").beginObject();
  for (const auto& [name, windowValue] : value.windows) {
    writer.key(name);
    encodeWindowValue(writer, windowValue);
  }
  writer.endObject().endObject();
}

ConversionValues::LockWindowConfiguration Codable<ConversionValues::LockWindowConfiguration>::decode(
    const JsonReader& reader) {
  ConversionValues::LockWindowConfiguration lock;
  lock.type = decodeName(reader.required("type"), lockWindowTypeFromRawValue);
  if (const auto hours = reader.optional("value")) {
    lock.value = hours->integer();
  }
  return lock;
}

ConversionValues Codable<ConversionValues>::decode(const JsonReader& document) {
  ConversionValues result;
  const JsonReader values = document.required("values");
  result.values.reserve(values.elementCount());
  values.forEachElement([&result](const JsonReader& value) {
    result.values.push_back(Codable<ConversionValues::ConversionValue>::decode(value));
  });
  const JsonReader lockWindows = document.required("lockWindows");
  lockWindows.forEachMember([&result](std::string_view name, const JsonReader& lock) {
    result.lockWindows.insert_or_assign(std::string(name),
                                        Codable<ConversionValues::LockWindowConfiguration>::decode(lock));
  });
  return result;
}

void Codable<ConversionValues>::encode(JsonWriter& writer, const ConversionValues& document) {
  writer.beginObject();
  encodeMembers(writer, document.values, document.lockWindows);
  writer.endObject();
}

void encodeMembers(JsonWriter& writer, const std::vector<ConversionValues::ConversionValue>& values,
                   const std::map<std::string, ConversionValues::LockWindowConfiguration, std::less<>>& lockWindows) {
  writer.key("values").beginArray();
  for (const auto& value : values) {
    Codable<ConversionValues::ConversionValue>::encode(writer, value);
  }
  writer.endArray().key("lockWindows").beginObject();
  for (const auto& [name, lock] : lockWindows) {
    writer.key(name).beginObject().member("type", rawValue(lock.type));
    if (lock.value) {
      writer.key("value").integer(*lock.value);
    }
    writer.endObject();
  }
  writer.endObject();
}

std::string_view rawValue(Window window) noexcept {
  return windowNames[static_cast<std::size_t>(window)];
}
std::string_view rawValue(CoarseValue value) noexcept {
  return coarseNames[static_cast<std::size_t>(value)];
}
std::string_view rawValue(ConversionValues::LockWindowType type) noexcept {
  return lockTypeNames[static_cast<std::size_t>(type)];
}

std::optional<Window> windowFromRawValue(std::string_view rawValue) noexcept {
  return fromName<Window>(windowNames, rawValue);
}
std::optional<CoarseValue> coarseValueFromRawValue(std::string_view rawValue) noexcept {
  return fromName<CoarseValue>(coarseNames, rawValue);
}
std::optional<ConversionValues::LockWindowType> lockWindowTypeFromRawValue(std::string_view rawValue) noexcept {
  return fromName<ConversionValues::LockWindowType>(lockTypeNames, rawValue);
}

platform::SKAdNetworkCoarseConversionValue toSKAdNetworkCoarseConversionValue(CoarseValue value) noexcept {
  switch (value) {
    case CoarseValue::high:
      return platform::SKAdNetworkCoarseConversionValue::high;
    case CoarseValue::medium:
      return platform::SKAdNetworkCoarseConversionValue::medium;
    case CoarseValue::low:
      break;
  }
  return platform::SKAdNetworkCoarseConversionValue::low;
}

platform::AttributionKitCoarseValue toAttributionKitCoarseValue(CoarseValue value) noexcept {
  switch (value) {
    case CoarseValue::high:
      return platform::AttributionKitCoarseValue::high;
    case CoarseValue::medium:
      return platform::AttributionKitCoarseValue::medium;
    case CoarseValue::low:
      break;
  }
  return platform::AttributionKitCoarseValue::low;
}

std::string description(const std::vector<ConversionValues::ConversionValue>& values) {
  std::string text;
  describe(text, values);
  return text;
}

std::string description(const ConversionValues& document) {
  std::string text = "ConversionValues(values: ";
  describe(text, document.values);
  text += ", lockWindows: ";
  const char* separator = "[";
  for (const auto& [name, lock] : document.lockWindows) {
    fmt::format_to(std::back_inserter(text), "{}\"{}\": LockWindowConfiguration(type: {}, value: {})",
                   std::exchange(separator, ", "), name, rawValue(lock.type),
                   lock.value ? fmt::to_string(*lock.value) : "nil");
  }
  text += document.lockWindows.empty() ? "[:])" : "])";
  return text;
}

}  // namespace quillmar
