#pragma once

#include <cstdio>
#include <cstdlib>

#include "Json/Codable.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar::fuzz {

/// The target: looks what the code makes of any bytes, and ends the process when a promise is broken. libFuzzer, or the
/// replay of the corpus, calls it over and over in one process.
void look(std::string_view bytes);

/// Ends the process when a promise is broken; the caller of the target reports the input.
inline void require(bool kept, const char* promise) {
  if (!kept) {
    std::fprintf(stderr, "Broken promise: %s\n", promise);
    std::abort();
  }
}

/// The decoded document; nothing when it is refused, which no other exception than `DecodingError` may do.
template <class T>
std::optional<T> decoded(std::string_view text, T (*decode)(const JsonReader&) = &Codable<T>::decode) {
  try {
    const boost::json::value document = parseJson(text);
    return decode(JsonReader(document));
  } catch (const DecodingError&) {
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
