#pragma once

namespace quillmar {

class JsonReader;
class JsonWriter;

/// How a type is read from JSON and written as JSON. Types of the library do both themselves. For a public type, which
/// knows nothing of JSON, a specialisation does it.
template <class T>
struct Codable {
  static T decode(const JsonReader& reader) { return T::decode(reader); }
  static void encode(JsonWriter& writer, const T& value) { value.encode(writer); }
};

}  // namespace quillmar
