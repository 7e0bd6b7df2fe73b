#include "service/ServedRequest.h"

#include "Json/JsonWriter.h"
#include "Json/Utf8.h"

namespace quillmar::service {

std::string jsonLine(const ServedRequest& request) {
  JsonWriter writer;
  writer.beginObject().key("request").beginObject();
  writer.member("method", repairedUtf8(request.method)).member("path", repairedUtf8(request.path));
  writer.key("status").integer(request.status);
  writer.optionalMember("event", request.event);
  writer.key("authorized").boolean(request.authorized);
  writer.key("bytes").integer(static_cast<std::int64_t>(request.bodyBytes));
  writer.endObject().endObject();
  return writer.take();
}

}  // namespace quillmar::service
