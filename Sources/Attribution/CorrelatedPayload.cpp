#include "Attribution/CorrelatedPayload.h"

#include <string_view>

#include "Json/JsonWriter.h"

namespace quillmar {

namespace {
void encodeOptional(JsonWriter& writer, std::string_view name, const std::optional<JsonObjectText>& object) {
  if (object) {
    writer.key(name).raw(object->text());
  }
}
}  // namespace

void CorrelatedPayload::encode(JsonWriter& writer) const {
  writer.beginObject().member("event_id", eventId);
  if (quillmarId) {
    writer.key("quillmar_id").raw(*quillmarId);
  }
  writer.member("app_id", appId).member("event_name", eventName).member("event_type", "AUTOMATIC");
  writer.key("transaction_details").beginObject();
  encodeOptional(writer, "transaction", transaction);
  encodeOptional(writer, "renewal_info", renewalInfo);
  writer.key("state").integer(state).endObject();
  encodeOptional(writer, "attribution_details", attributionDetails);
  writer.endObject();
}

}  // namespace quillmar
