#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillmar {

/// Writes one JSON document, compact or pretty-printed. The caller keeps the nesting right.
class JsonWriter {
 public:
  enum class Format : std::uint8_t { compact, prettyPrinted };

  explicit JsonWriter(Format format = Format::compact) noexcept : format_(format) {}

  JsonWriter& beginObject() { return open('{'); }
  JsonWriter& endObject() { return close('}'); }
  JsonWriter& beginArray() { return open('['); }
  JsonWriter& endArray() { return close(']'); }
  JsonWriter& key(std::string_view name);

  JsonWriter& string(std::string_view text);
  JsonWriter& boolean(bool value);
  JsonWriter& integer(std::int64_t value);
  /// Throws `EncodingErrorCode::invalidValue` for a value that is not finite.
  JsonWriter& number(double value);

  /// A value that is JSON already, and valid. Its tokens go through byte for byte (spelling of numbers, escapes,
  /// members that occur twice); only the white space between them becomes that of this document.
  JsonWriter& raw(std::string_view json);

  /// A whole member; an optional one is left out when it is absent.
  JsonWriter& member(std::string_view name, std::string_view text) { return key(name).string(text); }
  JsonWriter& optionalMember(std::string_view name, const std::optional<std::string>& text);
  JsonWriter& optionalMember(std::string_view name, std::optional<double> value);
  JsonWriter& optionalMember(std::string_view name, std::optional<bool> value);

  std::string take() { return std::move(text_); }

 private:
  JsonWriter& open(char bracket);
  JsonWriter& close(char bracket);
  void beforeValue();
  void afterKey();
  void newLine();

  std::string text_;
  std::size_t depth_ = 0;
  Format format_;
  bool first_ = true;      ///< nothing written yet at this depth
  bool afterKey_ = false;  ///< the next value belongs to a key
};

}  // namespace quillmar
