#include "Json/JsonObjectText.h"

#include "Json/CodingError.h"
#include "Json/JsonParser.h"

namespace quillmar {

std::optional<JsonObjectText> JsonObjectText::parse(std::string text) {
  switch (parseJson(text).kind()) {
    case boost::json::kind::object:
      return JsonObjectText(std::move(text));
    case boost::json::kind::array:
      return std::nullopt;
    default:
      throw DecodingError(DecodingErrorCode::dataCorrupted, "the document is neither an object nor an array");
  }
}

}  // namespace quillmar
