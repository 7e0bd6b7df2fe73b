#include "Json/JsonObjectText.h"

#include "Json/CodingError.h"
#include "Json/JsonParser.h"

namespace quillmar {

std::optional<JsonObjectText> JsonObjectText::parse(std::string text) {
  // Whoever gets the text reads all of it, so nothing in it may be beyond what a reader can hold.
  switch (parseJson(text, BeyondLimits::failsAtOnce).kind()) {
    case boost::json::kind::object:
      text.erase(0, text.size() - withoutByteOrderMark(text).size());
      return JsonObjectText(std::move(text));
    case boost::json::kind::array:
      return std::nullopt;
    default:
      throw DecodingError(DecodingErrorCode::dataCorrupted, "the document is neither an object nor an array");
  }
}

}  // namespace quillmar
