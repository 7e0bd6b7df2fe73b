#include "Network/ASAAttributionResponse.h"

#include <array>
#include <string_view>

#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar {

namespace {

struct TextField {
  std::string_view key;
  std::optional<std::string> ASAAttributionResponse::* member;
  bool isIdentifier = false;
};

constexpr std::array textFields{
    TextField{"campaignId", &ASAAttributionResponse::campaignId, true},
    TextField{"adGroupId", &ASAAttributionResponse::adGroupId, true},
    TextField{"keywordId", &ASAAttributionResponse::keywordId, true},
    TextField{"countryOrRegion", &ASAAttributionResponse::countryOrRegion},
    TextField{"conversionType", &ASAAttributionResponse::conversionType},
    TextField{"clickDate", &ASAAttributionResponse::clickDate},
    TextField{"impressionDate", &ASAAttributionResponse::impressionDate},
    TextField{"adId", &ASAAttributionResponse::adId, true},
    TextField{"orgId", &ASAAttributionResponse::orgId, true},
    TextField{"claimType", &ASAAttributionResponse::claimType},
};

}  // namespace

ASAAttributionResponse ASAAttributionResponse::decode(const JsonReader& document, Identifiers identifiers) {
  ASAAttributionResponse response;
  response.attribution = document.optionalBoolean("attribution");
  for (const TextField& field : textFields) {
    response.*field.member = field.isIdentifier && identifiers == Identifiers::textsOrIntegers
                                 ? document.optionalStringOrInteger(field.key)
                                 : document.optionalString(field.key);
  }
  return response;
}

void ASAAttributionResponse::encode(JsonWriter& writer) const {
  writer.beginObject().optionalMember("attribution", attribution);
  for (const TextField& field : textFields) {
    writer.optionalMember(field.key, this->*field.member);
  }
  writer.endObject();
}

}  // namespace quillmar
