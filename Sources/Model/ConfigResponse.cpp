#include "Model/ConfigResponse.h"

#include <utility>

#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Model/ConversionValuesCoding.h"

namespace quillmar {

ConfigResponse ConfigResponse::decode(const JsonReader& document) {
  ConfigResponse response;
  response.appId = document.required("app_id").string();
  response.sdkEnabled = document.required("sdk_enabled").boolean();
  ConversionValues conversionValues = Codable<ConversionValues>::decode(document);
  response.values = std::move(conversionValues.values);
  response.lockWindows = std::move(conversionValues.lockWindows);
  return response;
}

void ConfigResponse::encode(JsonWriter& writer) const {
  writer.beginObject().member("app_id", appId).key("sdk_enabled").boolean(sdkEnabled);
  encodeMembers(writer, values, lockWindows);
  writer.endObject();
}

}  // namespace quillmar
