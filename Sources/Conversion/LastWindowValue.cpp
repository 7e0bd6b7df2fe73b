#include "Conversion/LastWindowValue.h"

#include <utility>

#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "quillmar/Config.h"

namespace quillmar {

using platform::PropertyListValue;

namespace {

/// The entry if it is there and of type `T`, else null.
template <class T>
const T* entry(const PropertyListValue::Dictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : found->second.as<T>();
}

std::optional<double> optionalNumber(const PropertyListValue::Dictionary& dictionary, std::string_view key) {
  if (const auto* number = entry<double>(dictionary, key)) {
    return *number;
  }
  // Some stores do not tell 5.0 from 5.
  const auto* integer = entry<std::int64_t>(dictionary, key);
  return integer ? std::optional(static_cast<double>(*integer)) : std::nullopt;
}

}  // namespace

ConversionValues::ConversionValue LastWindowValue::conversionValue(Window forWindow) const {
  ConversionValues::WindowValue value;
  value.fineValue = {fineValue, {}};
  if (coarseValue) {
    value.coarseValue = {*coarseValue, {}};
  }
  ConversionValues::ConversionValue whole;
  whole.key = key;
  whole.windows.emplace(rawValue(forWindow), std::move(value));
  return whole;
}

PropertyListValue::Dictionary LastWindowValue::toDictionary() const {
  PropertyListValue::Dictionary dictionary{
      {"key", key},
      {"fineValue", fineValue},
      {"completedEvents", PropertyListValue::Array(completedEvents.begin(), completedEvents.end())}};
  if (coarseValue) {
    dictionary.emplace("coarseValue", std::string(rawValue(*coarseValue)));
  }
  if (lockWindow) {
    dictionary.emplace("lockWindow", *lockWindow);
  }
  if (revenueMin) {
    dictionary.emplace("revenueMin", *revenueMin);
  }
  if (revenueMax) {
    dictionary.emplace("revenueMax", *revenueMax);
  }
  if (window) {
    dictionary.emplace("window", std::string(rawValue(*window)));
  }
  return dictionary;
}

std::optional<LastWindowValue> LastWindowValue::fromDictionary(const PropertyListValue::Dictionary& dictionary) {
  const auto* const key = entry<std::string>(dictionary, "key");
  const auto* const fineValue = entry<std::int64_t>(dictionary, "fineValue");
  const auto* const lockWindow = entry<bool>(dictionary, "lockWindow");
  const auto* const completedEvents = entry<PropertyListValue::Array>(dictionary, "completedEvents");
  if (!key || !fineValue || !lockWindow || !completedEvents) {
    return std::nullopt;
  }
  LastWindowValue value{*key, *fineValue, std::nullopt, *lockWindow, {}, std::nullopt, std::nullopt};
  for (const PropertyListValue& element : *completedEvents) {
    const auto* const name = element.as<std::string>();
    if (!name) {
      return std::nullopt;
    }
    value.completedEvents.insert(*name);
  }
  if (const auto* const coarseValue = entry<std::string>(dictionary, "coarseValue")) {
    value.coarseValue = coarseValueFromRawValue(*coarseValue);
  }
  value.revenueMin = optionalNumber(dictionary, "revenueMin");
  value.revenueMax = optionalNumber(dictionary, "revenueMax");
  if (const auto* const window = entry<std::string>(dictionary, "window")) {
    value.window = windowFromRawValue(*window);
  }
  return value;
}

void LastWindowValue::encode(JsonWriter& writer) const {
  writer.beginObject().member("key", key).key("fineValue").integer(fineValue);
  if (coarseValue) {
    writer.member("coarseValue", rawValue(*coarseValue));
  }
  if (lockWindow) {
    writer.key("lockWindow").boolean(*lockWindow);
  }
  writer.key("completedEvents").beginArray();
  for (const std::string& name : completedEvents) {
    writer.string(name);
  }
  writer.endArray().optionalMember("revenueMin", revenueMin).optionalMember("revenueMax", revenueMax);
  if (window) {
    writer.member("window", rawValue(*window));
  }
  writer.endObject();
}

LastWindowValue LastWindowValue::decode(const JsonReader& reader) {
  LastWindowValue value;
  value.key = reader.required("key").string();
  value.fineValue = reader.required("fineValue").integer();
  if (const auto coarse = reader.optional("coarseValue")) {
    value.coarseValue = coarseValueFromRawValue(coarse->string());
    if (!value.coarseValue) {
      coarse->fail(DecodingErrorCode::dataCorrupted, "not a coarse value");
    }
  }
  if (const auto lock = reader.optional("lockWindow")) {
    value.lockWindow = lock->boolean();
  }
  reader.required("completedEvents").forEachElement([&value](const JsonReader& name) {
    value.completedEvents.insert(name.string());
  });
  value.revenueMin = reader.optionalNumber("revenueMin");
  value.revenueMax = reader.optionalNumber("revenueMax");
  if (const auto window = reader.optionalString("window")) {
    value.window = windowFromRawValue(*window);
  }
  return value;
}

std::optional<LastWindowValue> readLastWindowValue(const platform::UserDefaults& userDefaults) {
  const std::optional<PropertyListValue> stored = userDefaults.object(Config::lastWindowValue);
  const auto* const dictionary = stored ? stored->as<PropertyListValue::Dictionary>() : nullptr;
  return dictionary ? LastWindowValue::fromDictionary(*dictionary) : std::nullopt;
}

}  // namespace quillmar
