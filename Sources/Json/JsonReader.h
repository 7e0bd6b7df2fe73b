#pragma once

#include <boost/json/value.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Json/CodingError.h"

namespace quillmar {

/// A value of `parseJson` and its place in the document, for typed reading with errors that name the place. It points
/// to the value and to the reader of the enclosing value, and must not outlive them.
class JsonReader {
 public:
  /// The root of a document.
  explicit JsonReader(const boost::json::value& value) noexcept : JsonReader(value, nullptr, {}, 0) {}

  /// A required member of an object. Throws `typeMismatch` (this is no object), `keyNotFound` or `valueNotFound`.
  JsonReader required(std::string_view key) const;

  /// A member that may be absent or null. Throws `typeMismatch` when this is no object.
  std::optional<JsonReader> optional(std::string_view key) const;

  // The content as a type; each throws `typeMismatch` for a value of another JSON type.
  std::string string() const;
  bool boolean() const;
  double number() const;
  /// Also throws for a number that is no integer of 64 bits; 63.0 is one.
  std::int64_t integer() const;

  /// Optional members of the simple types.
  std::optional<std::string> optionalString(std::string_view key) const;
  /// An integer counts as its digits.
  std::optional<std::string> optionalStringOrInteger(std::string_view key) const;
  std::optional<double> optionalNumber(std::string_view key) const;
  std::optional<bool> optionalBoolean(std::string_view key) const;

  /// Calls `visit(reader)` for each element of an array.
  template <class Visit>
  void forEachElement(Visit visit) const {
    const boost::json::array& elements = array();
    for (std::size_t i = 0; i < elements.size(); ++i) {
      visit(JsonReader(elements[i], this, {}, i));
    }
  }

  /// Calls `visit(key, reader)` for each member of an object.
  template <class Visit>
  void forEachMember(Visit visit) const {
    for (const auto& member : object()) {
      const std::string_view key(member.key().data(), member.key().size());
      visit(key, JsonReader(member.value(), this, key, 0));
    }
  }

  std::size_t elementCount() const { return array().size(); }

  /// Throws an error about this value.
  [[noreturn]] void fail(DecodingErrorCode code, std::string_view why) const;

 private:
  JsonReader(const boost::json::value& value, const JsonReader* parent, std::string_view key,
             std::size_t index) noexcept
      : value_(&value), parent_(parent), key_(key), index_(index) {}

  const boost::json::array& array() const;
  const boost::json::object& object() const;
  [[noreturn]] void mismatch(std::string_view expected) const;
  std::string path() const;

  const boost::json::value* value_;
  const JsonReader* parent_;
  std::string_view key_;
  std::size_t index_;
};

}  // namespace quillmar
