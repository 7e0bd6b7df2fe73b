#include "Json/JsonParser.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/value_stack.hpp>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Json/CodingError.h"
#include "Json/DecimalNumber.h"
#include "Json/JsonToken.h"

namespace quillmar {

namespace {

namespace json = boost::json;
using json::error_code;
using json::string_view;

constexpr std::size_t deepest = 64;
/// Stands in the text for what is nested deeper. Like any number that large, it becomes an infinite double.
constexpr std::string_view beyondEveryDouble = "1e999";

/// Builds a value like Boost.JSON's own handler does, except that a number with a fraction or an exponent becomes the
/// integer that it is, or the nearest double: the library's quick conversion can be off in the last place, and revenue
/// bounds are inclusive.
struct ValueBuilder {
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();

  ValueBuilder(json::storage_ptr storage, BeyondLimits limits) : stack({}, nullptr, 0), beyondLimits(limits) {
    stack.reset(std::move(storage));
  }

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
    if (const std::optional<std::int64_t> integer = exactInteger(numberText)) {
      stack.push_int64(*integer);
    } else {
      const double number = nearestDouble(numberText);
      if (std::isinf(number) && beyondLimits == BeyondLimits::failsAtOnce) {
        error = json::error::exponent_overflow;
        return false;
      }
      stack.push_double(number);
    }
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
  BeyondLimits beyondLimits;
  std::string numberText;
};

struct Parsed {
  std::optional<json::value> value;  // assigning to a value that is there would copy: each has a storage of its own
  error_code error;
  std::size_t end = 0;  ///< how far the text was read
};

Parsed parse(std::string_view text, BeyondLimits beyondLimits) {
  json::parse_options options;
  options.max_depth = deepest;
  // Freed in one piece, when the last value that uses it is gone.
  const json::storage_ptr storage = json::make_shared_resource<json::monotonic_resource>();
  json::basic_parser<ValueBuilder> parser(options, storage, beyondLimits);
  Parsed result;
  result.end = parser.write_some(false, text.data(), text.size(), result.error);
  if (!result.error && result.end < text.size()) {
    result.error = json::error::extra_data;
  }
  if (!result.error) {
    result.value.emplace(parser.handler().stack.release());
  }
  return result;
}

/// An exponent of more than nine digits, which the parser does not count, means the same as one of nine.
void appendScalar(std::string& out, std::string_view token) {
  const std::size_t exponent = token.front() == '"' ? token.npos : token.find_first_of("eE");
  const std::size_t digits = std::min(token.find_first_not_of("+-0", exponent + 1), token.size());
  const bool tooLong = exponent != token.npos && token.size() - digits > 9 &&
                       token.find_first_not_of("0123456789", digits) == token.npos;
  out += token.substr(0, tooLong ? digits : token.size());
  out += tooLong ? "999999999" : "";
}

/// Parses again what the parser refused for one of its limits. What is nested too deep is taken out and parsed on its
/// own, 64 levels at a time, so that it costs neither stack nor more time than other text.
Parsed parseBeyondLimits(std::string_view text) {
  std::vector<std::string> parts(1);  ///< of each 64 levels that are open, what came so far
  std::size_t depth = 0;
  for (std::string_view token = takeJsonToken(text); !token.empty(); token = takeJsonToken(text)) {
    const bool opens = token == "{" || token == "[";
    const bool closes = (token == "}" || token == "]") && depth > 0;
    if (opens && depth++ == deepest * parts.size()) {
      parts.emplace_back();
    }
    parts.back() += ' ';  // tokens that do not belong together stay apart
    appendScalar(parts.back(), token);
    if (closes && --depth == deepest * (parts.size() - 1) && parts.size() > 1) {
      if (const error_code error = parse(parts.back(), BeyondLimits::failsWhenRead).error) {
        return {{}, error};
      }
      parts.pop_back();
      parts.back() += beyondEveryDouble;
    }
  }
  return parse(parts.front(), BeyondLimits::failsWhenRead);  // incomplete if more than one are left
}

[[noreturn]] void refuse(std::string_view text, std::size_t offset, std::string_view where, std::string_view why) {
  const std::string_view before = text.substr(0, offset);
  const auto line = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
  const std::size_t lineStart = before.rfind('\n') + 1;  // npos + 1 is 0
  throw DecodingError(DecodingErrorCode::dataCorrupted,
                      fmt::format("not valid JSON {} line {}, column {}: {}", where, line, offset - lineStart + 1, why),
                      {{}, line});
}

}  // namespace

std::string_view withoutByteOrderMark(std::string_view text) noexcept {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  return text.substr(text.starts_with(mark) ? mark.size() : 0);
}

json::value parseJson(std::string_view text, BeyondLimits beyondLimits) {
  text = withoutByteOrderMark(text);
  Parsed parsed = parse(text, beyondLimits);
  const bool isLimit = parsed.error == json::error::too_deep || parsed.error == json::error::exponent_overflow;
  std::string_view where = "at";
  if (isLimit && beyondLimits == BeyondLimits::failsWhenRead) {
    const std::size_t end = parsed.end;
    parsed = parseBeyondLimits(text);
    parsed.end = end;
    where = "after";
  }
  if (parsed.error) {
    refuse(text, parsed.end, where, text.empty() ? "the document is empty" : parsed.error.message());
  }
  return *std::move(parsed.value);
}

}  // namespace quillmar
