#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "quillmar/ConversionValues.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

class JsonReader;
class JsonWriter;

/// What the last successful update told the platform.
struct LastWindowValue {
  std::string key;  ///< of the conversion value that was sent
  std::int64_t fineValue = 0;
  std::optional<CoarseValue> coarseValue;
  std::optional<bool> lockWindow;
  std::set<std::string> completedEvents;
  std::optional<double> revenueMin;
  std::optional<double> revenueMax;
  std::optional<Window> window = {};  ///< that it was sent in; kept only for options that ask for it
  bool operator==(const LastWindowValue&) const = default;

  /// The value as it was sent, for the window.
  ConversionValues::ConversionValue conversionValue(Window forWindow) const;

  /// The stored form. What is absent is left out.
  platform::PropertyListValue::Dictionary toDictionary() const;

  /// Nothing when a required entry is missing or of another type. "lockWindow" is required here though optional above,
  /// on purpose: a stored value without it does not count.
  static std::optional<LastWindowValue> fromDictionary(const platform::PropertyListValue::Dictionary& dictionary);

  /// JSON under the same keys; here the lock flag is optional in both directions.
  void encode(JsonWriter& writer) const;
  static LastWindowValue decode(const JsonReader& reader);
};

/// The value that is stored under `Config::lastWindowValue`; nothing when there is none that can be read.
std::optional<LastWindowValue> readLastWindowValue(const platform::UserDefaults& userDefaults);

}  // namespace quillmar
