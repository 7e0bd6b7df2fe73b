#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Json/JsonObjectText.h"

namespace quillmar {

class JsonWriter;

/// A purchase together with the attribution of the installation, as the service takes it.
struct CorrelatedPayload {
  static constexpr std::string_view eventName = "Purchase";

  std::string eventId;                    ///< a UUID of its own for every payload
  std::optional<std::string> quillmarId;  ///< JSON of the stored install identifier, whatever its type
  std::string appId;
  std::optional<JsonObjectText> transaction;
  std::optional<JsonObjectText> renewalInfo;
  std::int64_t state = 0;
  std::optional<JsonObjectText> attributionDetails;

  void encode(JsonWriter& writer) const;
};

}  // namespace quillmar
