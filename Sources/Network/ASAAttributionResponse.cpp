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
};

constexpr std::array textFields{
    TextField{"campaignId", &ASAAttributionResponse::campaignId},
    TextField{"adGroupId", &ASAAttributionResponse::adGroupId},
    TextField{"keywordId", &ASAAttributionResponse::keywordId},
    TextField{"countryOrRegion", &ASAAttributionResponse::countryOrRegion},
    TextField{"conversionType", &ASAAttributionResponse::conversionType},
    TextField{"clickDate", &ASAAttributionResponse::clickDate},
    TextField{"impressionDate", &ASAAttributionResponse::impressionDate},
    TextField{"adId", &ASAAttributionResponse::adId},
    TextField{"orgId", &ASAAttributionResponse::orgId},
    TextField{"claimType", &ASAAttributionResponse::claimType},
};

}  // namespace

ASAAttributionResponse ASAAttributionResponse::decode(const JsonReader& document) {
  ASAAttributionResponse response;
  response.attribution = document.optionalBoolean("attribution");
  for (const TextField& field : textFields) {
    response.*field.member = document.optionalString(field.key);
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
