#pragma once

#include <optional>
#include <string>

namespace quillmar {

class JsonReader;
class JsonWriter;

/// The service's answer to an event.
struct EventServerLogResponse {
  std::optional<std::string> status;  ///< "success" is the only one that counts as such
  std::optional<std::string> message;
  std::optional<std::string> error;
  bool operator==(const EventServerLogResponse&) const = default;

  static EventServerLogResponse decode(const JsonReader& document);
  void encode(JsonWriter& writer) const;
};

/// A word of the service's vocabulary that no operation of the library uses.
struct SubscriptionsStatusResponse {
  bool success = false;
  std::optional<std::string> message;
  std::optional<std::string> error;

  static SubscriptionsStatusResponse decode(const JsonReader& document);
};

}  // namespace quillmar
