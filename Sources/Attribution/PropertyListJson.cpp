#include "Attribution/PropertyListJson.h"

#include <cmath>
#include <type_traits>

#include "Json/JsonWriter.h"
#include "Json/Utf8.h"

namespace quillmar {

namespace {

using platform::PropertyListValue;

bool write(JsonWriter& writer, const PropertyListValue& value) {
  const auto writeContent = [&writer](const auto& content) {
    using Content = std::decay_t<decltype(content)>;
    if constexpr (std::is_same_v<Content, bool>) {
      writer.boolean(content);
    } else if constexpr (std::is_same_v<Content, std::int64_t>) {
      writer.integer(content);
    } else if constexpr (std::is_same_v<Content, double>) {
      if (!std::isfinite(content)) {
        return false;
      }
      writer.number(content);
    } else if constexpr (std::is_same_v<Content, std::string>) {
      writer.string(repairedUtf8(content));
    } else if constexpr (std::is_same_v<Content, PropertyListValue::Array>) {
      writer.beginArray();
      for (const PropertyListValue& element : content) {
        if (!write(writer, element)) {
          return false;
        }
      }
      writer.endArray();
    } else if constexpr (std::is_same_v<Content, PropertyListValue::Dictionary>) {
      writer.beginObject();
      for (const auto& [key, element] : content) {
        writer.key(repairedUtf8(key));
        if (!write(writer, element)) {
          return false;
        }
      }
      writer.endObject();
    } else {
      return false;  // bytes and dates
    }
    return true;
  };
  return std::visit(writeContent, value.storage());
}

}  // namespace

std::optional<std::string> propertyListJson(const PropertyListValue& value) {
  JsonWriter writer;
  return write(writer, value) ? std::optional(writer.take()) : std::nullopt;
}

}  // namespace quillmar
