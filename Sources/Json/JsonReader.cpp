#include "Json/JsonReader.h"

#include <fmt/format.h>

#include <cmath>

namespace quillmar {

namespace json = boost::json;

JsonReader JsonReader::required(std::string_view key) const {
  const json::object& members = object();
  const json::value* const member = members.if_contains({key.data(), key.size()});
  if (member == nullptr) {
    const std::string place = path();
    throw DecodingError(DecodingErrorCode::keyNotFound,
                        fmt::format("\"{}\" is missing in {}", key, place.empty() ? "the document" : place), {place});
  }
  const JsonReader reader(*member, this, key, 0);
  if (member->is_null()) {
    reader.fail(DecodingErrorCode::valueNotFound, "a value is required, not null");
  }
  return reader;
}

std::optional<JsonReader> JsonReader::optional(std::string_view key) const {
  const json::value* const member = object().if_contains({key.data(), key.size()});
  if (member == nullptr || member->is_null()) {
    return std::nullopt;
  }
  return JsonReader(*member, this, key, 0);
}

std::string JsonReader::string() const {
  const json::string* const text = value_->if_string();
  if (text == nullptr) {
    mismatch("a string");
  }
  return {text->data(), text->size()};
}

bool JsonReader::boolean() const {
  const bool* const flag = value_->if_bool();
  if (flag == nullptr) {
    mismatch("a Boolean");
  }
  return *flag;
}

double JsonReader::number() const {
  if (const std::int64_t* const integer = value_->if_int64()) {
    return static_cast<double>(*integer);
  }
  if (const std::uint64_t* const integer = value_->if_uint64()) {
    return static_cast<double>(*integer);
  }
  const double* const number = value_->if_double();
  if (number == nullptr || std::isinf(*number)) {
    mismatch("a number");
  }
  return *number;
}

std::int64_t JsonReader::integer() const {
  const std::int64_t* const integer = value_->if_int64();
  if (integer == nullptr) {
    mismatch("an integer");
  }
  return *integer;
}

std::optional<std::string> JsonReader::optionalString(std::string_view key) const {
  const std::optional<JsonReader> member = optional(key);
  return member ? std::optional(member->string()) : std::nullopt;
}

std::optional<std::string> JsonReader::optionalStringOrInteger(std::string_view key) const {
  const std::optional<JsonReader> member = optional(key);
  if (member && member->value_->is_int64()) {
    return fmt::to_string(member->integer());
  }
  return member ? std::optional(member->string()) : std::nullopt;
}

std::optional<double> JsonReader::optionalNumber(std::string_view key) const {
  const std::optional<JsonReader> member = optional(key);
  return member ? std::optional(member->number()) : std::nullopt;
}

std::optional<bool> JsonReader::optionalBoolean(std::string_view key) const {
  const std::optional<JsonReader> member = optional(key);
  return member ? std::optional(member->boolean()) : std::nullopt;
}

const json::array& JsonReader::array() const {
  const json::array* const elements = value_->if_array();
  if (elements == nullptr) {
    mismatch("an array");
  }
  return *elements;
}

const json::object& JsonReader::object() const {
  const json::object* const members = value_->if_object();
  if (members == nullptr) {
    mismatch("an object");
  }
  return *members;
}

void JsonReader::mismatch(std::string_view expected) const {
  const std::string_view found = [this]() -> std::string_view {
    switch (value_->kind()) {
      case json::kind::null:
        return "null";
      case json::kind::bool_:
        return "a Boolean";
      case json::kind::int64:
      case json::kind::uint64:
        return "another number";
      case json::kind::double_:
        return std::isinf(value_->get_double()) ? "a number too large for a double, or a value nested too deep"
                                                : "another number";
      case json::kind::string:
        return "a string";
      case json::kind::array:
        return "an array";
      case json::kind::object:
        break;
    }
    return "an object";
  }();
  fail(DecodingErrorCode::typeMismatch, fmt::format("expected {}, found {}", expected, found));
}

void JsonReader::fail(DecodingErrorCode code, std::string_view why) const {
  const std::string place = path();
  throw DecodingError(code, fmt::format("{}: {}", place.empty() ? "the document" : place, why), {place});
}

std::string JsonReader::path() const {
  if (parent_ == nullptr) {
    return {};
  }
  const std::string above = parent_->path();
  if (key_.data() == nullptr) {
    return fmt::format("{}[{}]", above, index_);
  }
  return above.empty() ? std::string(key_) : fmt::format("{}.{}", above, key_);
}

}  // namespace quillmar
