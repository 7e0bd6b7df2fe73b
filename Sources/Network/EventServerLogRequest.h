#pragma once

#include <string>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

class JsonReader;
class JsonWriter;

/// The record of one reported event, as the service takes it.
struct EventServerLogRequest {
  std::string eventId;     ///< a UUID, the same at each attempt
  std::string eventName;   ///< unchanged
  std::string quillMarId;  ///< the install identifier, "Unknown" when there is none
  std::string appId;       ///< the app's identifier at the service, "Unknown" when there is none
  std::string eventType;   ///< "MANUAL"
  std::string sdkVersion;
  bool operator==(const EventServerLogRequest&) const = default;

  /// The record of an event by that name, with the identifiers that the store holds now. `eventId`: empty for a fresh
  /// one.
  static EventServerLogRequest make(std::string event, std::string eventId,
                                    const platform::UserDefaults& quillMarDefaults);

  static EventServerLogRequest decode(const JsonReader& document);
  void encode(JsonWriter& writer) const;
};

}  // namespace quillmar
