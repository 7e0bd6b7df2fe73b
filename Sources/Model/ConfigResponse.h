#pragma once

#include <map>
#include <string>
#include <vector>

#include "quillmar/ConversionValues.h"

namespace quillmar {

class JsonReader;
class JsonWriter;

/// The service's answer to the configuration request. The service's JSON mixes two key styles: "app_id" and
/// "sdk_enabled", but "values" and "lockWindows".
struct ConfigResponse {
  std::string appId;
  bool sdkEnabled = true;
  std::vector<ConversionValues::ConversionValue> values;
  std::map<std::string, ConversionValues::LockWindowConfiguration, std::less<>> lockWindows;
  bool operator==(const ConfigResponse&) const = default;

  /// The configuration document: `values` and `lockWindows`, unchanged.
  ConversionValues conversionValues() const { return {values, lockWindows}; }

  static ConfigResponse decode(const JsonReader& document);
  void encode(JsonWriter& writer) const;
};

}  // namespace quillmar
