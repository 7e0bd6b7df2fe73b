#include "JsonMemberText.h"

#include <boost/json/parse.hpp>
#include <cstddef>

namespace quillmar::cli {
namespace {

constexpr std::string_view blanks = " \t\r\n";

/// Behind the string that begins at `position`.
std::size_t stringEnd(std::string_view text, std::size_t position) {
  for (++position; position < text.size() && text[position] != '"'; ++position) {
    position += text[position] == '\\' ? 1U : 0U;
  }
  return position + 1;
}

/// Behind the value that begins at `position`, and blanks that follow it: at the "," or "}" of the object around it.
std::size_t valueEnd(std::string_view text, std::size_t position) {
  for (int depth = 0; position < text.size();) {
    const char letter = text[position];
    if (depth == 0 && (letter == ',' || letter == '}')) {
      break;
    }
    if (letter == '"') {
      position = stringEnd(text, position);
      continue;
    }
    depth += letter == '{' || letter == '[' ? 1 : 0;
    depth -= letter == '}' || letter == ']' ? 1 : 0;
    ++position;
  }
  return position;
}

}  // namespace

std::optional<std::string_view> jsonMemberText(std::string_view object, std::string_view name) {
  std::optional<std::string_view> found;
  for (std::size_t position = object.find('"'); position < object.size(); position = object.find('"', position)) {
    const std::size_t keyEnd = stringEnd(object, position);
    const std::string_view key = object.substr(position, keyEnd - position);
    const std::size_t begin = object.find_first_not_of(blanks, object.find(':', keyEnd) + 1);
    position = valueEnd(object, begin);
    // Parsed, since a letter of a key may be written as an escape.
    if (boost::json::parse({key.data(), key.size()}).get_string() ==
        boost::json::string_view(name.data(), name.size())) {
      const std::string_view value = object.substr(begin, position - begin);
      found = value.substr(0, value.find_last_not_of(blanks) + 1);
    }
  }
  return found;
}

}  // namespace quillmar::cli
