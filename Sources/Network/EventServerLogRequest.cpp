#include "Network/EventServerLogRequest.h"

#include <utility>

#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Settings/Uuid.h"
#include "quillmar/Config.h"

namespace quillmar {

EventServerLogRequest EventServerLogRequest::make(std::string event, std::string eventId,
                                                  const platform::UserDefaults& quillMarDefaults) {
  return {eventId.empty() ? makeUuid() : std::move(eventId),
          std::move(event),
          quillMarDefaults.string(Config::quillMarId).value_or("Unknown"),
          quillMarDefaults.string(Config::serverAppId).value_or("Unknown"),
          "MANUAL",
          std::string(Config::sdkVersionNumber)};
}

EventServerLogRequest EventServerLogRequest::decode(const JsonReader& document) {
  return {document.required("event_id").string(),    document.required("event_name").string(),
          document.required("quillmar_id").string(), document.required("app_id").string(),
          document.required("event_type").string(),  document.required("sdk_version").string()};
}

void EventServerLogRequest::encode(JsonWriter& writer) const {
  writer.beginObject()
      .member("event_id", eventId)
      .member("event_name", eventName)
      .member("quillmar_id", quillMarId)
      .member("app_id", appId)
      .member("event_type", eventType)
      .member("sdk_version", sdkVersion)
      .endObject();
}

}  // namespace quillmar
