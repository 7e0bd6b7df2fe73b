#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Json/Codable.h"
#include "Json/CodingError.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar::fuzz {

/// Ends the process when a promise is broken; the caller of the target reports the input.
void require(bool kept, const char* promise);

/// The decoded document; nothing when it is refused, which no other exception than `DecodingError` may do.
template <class T>
std::optional<T> decoded(std::string_view text) {
  try {
    const boost::json::value document = parseJson(text);
    return Codable<T>::decode(JsonReader(document));
  } catch (const DecodingError& error) {
    require(error.code().category() == make_error_code(DecodingErrorCode::dataCorrupted).category(),
            "a document is refused with one of the decoding errors");
    require(!textualDescription(error).empty(), "a decoding error says what is wrong");
    return std::nullopt;
  }
}

template <class T>
std::string encoded(const T& value, JsonWriter::Format format = JsonWriter::Format::compact) {
  JsonWriter writer(format);
  Codable<T>::encode(writer, value);
  return writer.take();
}

/// What was decoded can be written, in both formats, and read again.
template <class T>
void requireRoundTrip(const T& value) {
  require(decoded<T>(encoded(value)) == value, "the compact form reads back as the same value");
  require(decoded<T>(encoded(value, JsonWriter::Format::prettyPrinted)) == value,
          "the pretty-printed form reads back as the same value");
}

}  // namespace quillmar::fuzz
