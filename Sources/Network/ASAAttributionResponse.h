#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quillmar {

class JsonReader;
class JsonWriter;

/// The search-ads attribution of an installation. Identifiers and dates stay the texts that were received.
struct ASAAttributionResponse {
  std::optional<bool> attribution;
  std::optional<std::string> campaignId;
  std::optional<std::string> adGroupId;
  std::optional<std::string> keywordId;
  std::optional<std::string> countryOrRegion;
  std::optional<std::string> conversionType;
  std::optional<std::string> clickDate;
  std::optional<std::string> impressionDate;
  std::optional<std::string> adId;
  std::optional<std::string> orgId;
  std::optional<std::string> claimType;
  bool operator==(const ASAAttributionResponse&) const = default;

  enum class Identifiers : std::uint8_t {
    texts,
    textsOrIntegers,  ///< integers are kept as their digits
  };

  /// Throws `DecodingErrorCode::typeMismatch` for a value of another type.
  static ASAAttributionResponse decode(const JsonReader& document, Identifiers identifiers = Identifiers::texts);
  /// Absent fields are left out.
  void encode(JsonWriter& writer) const;
};

}  // namespace quillmar
