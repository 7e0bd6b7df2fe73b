#include "Network/EventServerLogResponse.h"

#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar {

EventServerLogResponse EventServerLogResponse::decode(const JsonReader& document) {
  return {document.optionalString("status"), document.optionalString("message"), document.optionalString("error")};
}

void EventServerLogResponse::encode(JsonWriter& writer) const {
  writer.beginObject()
      .optionalMember("status", status)
      .optionalMember("message", message)
      .optionalMember("error", error)
      .endObject();
}

SubscriptionsStatusResponse SubscriptionsStatusResponse::decode(const JsonReader& document) {
  return {document.required("success").boolean(), document.optionalString("message"), document.optionalString("error")};
}

}  // namespace quillmar
