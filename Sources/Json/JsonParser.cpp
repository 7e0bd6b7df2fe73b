#include "Json/JsonParser.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/value_stack.hpp>
#include <optional>
#include <string>

#include "Json/CodingError.h"
#include "Json/DecimalNumber.h"

namespace quillmar {

namespace {

namespace json = boost::json;
using json::error_code;
using json::string_view;

/// Builds a value like Boost.JSON's own handler does, except that a number with a fraction or an exponent becomes the
/// nearest double: the library's quick conversion can be off in the last place, and revenue bounds are inclusive.
struct ValueBuilder {
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();

  explicit ValueBuilder(json::storage_ptr storage) : stack({}, nullptr, 0) { stack.reset(std::move(storage)); }

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_object_begin(error_code&) { return true; }
  bool on_object_end(std::size_t size, error_code&) {
    stack.push_object(size);
    return true;
  }
  bool on_array_begin(error_code&) { return true; }
  bool on_array_end(std::size_t size, error_code&) {
    stack.push_array(size);
    return true;
  }
  bool on_key_part(string_view part, std::size_t, error_code&) {
    stack.push_chars(part);
    return true;
  }
  bool on_key(string_view part, std::size_t, error_code&) {
    stack.push_key(part);
    return true;
  }
  bool on_string_part(string_view part, std::size_t, error_code&) {
    stack.push_chars(part);
    return true;
  }
  bool on_string(string_view part, std::size_t, error_code&) {
    stack.push_string(part);
    return true;
  }
  bool on_number_part(string_view part, error_code&) {
    numberText.append(part.data(), part.size());
    return true;
  }
  bool on_int64(std::int64_t value, string_view, error_code&) {
    numberText.clear();
    stack.push_int64(value);
    return true;
  }
  bool on_uint64(std::uint64_t value, string_view, error_code&) {
    numberText.clear();
    stack.push_uint64(value);
    return true;
  }
  bool on_double(double, string_view rest, error_code& error) {
    numberText.append(rest.data(), rest.size());
    const std::optional<double> number = parseDecimal(numberText);
    if (!number) {  // too large: an infinite number could not be written again
      error = json::error::exponent_overflow;
      return false;
    }
    stack.push_double(*number);
    numberText.clear();
    return true;
  }
  bool on_bool(bool value, error_code&) {
    stack.push_bool(value);
    return true;
  }
  bool on_null(error_code&) {
    stack.push_null();
    return true;
  }
  bool on_comment_part(string_view, error_code&) { return true; }
  bool on_comment(string_view, error_code&) { return true; }

  json::value_stack stack;
  std::string numberText;
};

std::string placeOf(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const std::size_t lineStart = before.rfind('\n') + 1;  // npos + 1 is 0
  return fmt::format("line {}, column {}", std::count(before.begin(), before.end(), '\n') + 1, offset - lineStart + 1);
}

}  // namespace

json::value parseJson(std::string_view text) {
  json::parse_options options;
  options.max_depth = 64;
  // Freed in one piece, when the last value that uses it is gone.
  const json::storage_ptr storage = json::make_shared_resource<json::monotonic_resource>();
  json::basic_parser<ValueBuilder> parser(options, storage);
  error_code error;
  const std::size_t parsed = parser.write_some(false, text.data(), text.size(), error);
  if (!error && parsed < text.size()) {
    error = json::error::extra_data;
  }
  if (error) {
    throw DecodingError(DecodingErrorCode::dataCorrupted,
                        fmt::format("not valid JSON at {}: {}", placeOf(text, std::min(parsed, text.size())),
                                    text.empty() ? "the document is empty" : error.message()));
  }
  return parser.handler().stack.release();
}

}  // namespace quillmar
