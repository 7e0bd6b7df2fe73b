#pragma once

#include <map>
#include <optional>
#include <string>

#include "quillmar/platform/Clock.h"

namespace quillmar {

class JsonReader;
class JsonWriter;

/// One event that the host reported.
struct TrackedEvent {
  std::string name;
  std::map<std::string, double> parameters;
  platform::Clock::TimePoint timestamp;
  bool operator==(const TrackedEvent&) const = default;

  /// The parameter that rules look at.
  std::optional<double> revenue() const;

  /// In JSON the timestamp is a number: the seconds since 2001-01-01 00:00:00 UTC. `encode` throws `EncodingError` for
  /// a parameter that is not finite, `decode` throws `DecodingError`; all three members are required.
  void encode(JsonWriter& writer) const;
  static TrackedEvent decode(const JsonReader& reader);
};

}  // namespace quillmar
