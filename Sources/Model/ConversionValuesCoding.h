#pragma once

#include <map>
#include <string>
#include <vector>

#include "Json/Codable.h"
#include "quillmar/ConversionValues.h"

namespace quillmar {

template <>
struct Codable<ConversionValues> {
  /// Throws `DecodingError` for the whole document; there is no partial result.
  static ConversionValues decode(const JsonReader& document);
  static void encode(JsonWriter& writer, const ConversionValues& document);
};

// Parts of the document, which may be good in one that is not.

template <>
struct Codable<ConversionValues::ConversionValue> {
  static ConversionValues::ConversionValue decode(const JsonReader& reader);
  static void encode(JsonWriter& writer, const ConversionValues::ConversionValue& value);
};

template <>
struct Codable<ConversionValues::LockWindowConfiguration> {
  static ConversionValues::LockWindowConfiguration decode(const JsonReader& reader);
};

/// Writes the members "values" and "lockWindows" of the object that is open.
void encodeMembers(JsonWriter& writer, const std::vector<ConversionValues::ConversionValue>& values,
                   const std::map<std::string, ConversionValues::LockWindowConfiguration, std::less<>>& lockWindows);

/// Field names and values, for log lines.
std::string description(const ConversionValues& document);
std::string description(const std::vector<ConversionValues::ConversionValue>& values);

}  // namespace quillmar
