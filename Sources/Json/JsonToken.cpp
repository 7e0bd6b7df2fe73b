#include "Json/JsonToken.h"

#include <algorithm>
#include <cstddef>

namespace quillmar {

namespace {

constexpr std::string_view whiteSpace = " \t\r\n";

/// The length of the string token at the front, with both quotes.
std::size_t stringLength(std::string_view json) noexcept {
  std::size_t i = 1;
  while (i < json.size() && json[i] != '"') {
    i += json[i] == '\\' ? 2 : 1;
  }
  return std::min(i + 1, json.size());
}

std::size_t tokenLength(std::string_view json) noexcept {
  if (json.front() == '"') {
    return stringLength(json);
  }
  const std::size_t end = json.find_first_of("{}[],: \t\r\n");
  return std::min(std::max<std::size_t>(end, 1), json.size());
}

}  // namespace

std::string_view takeJsonToken(std::string_view& json) noexcept {
  json.remove_prefix(std::min(json.find_first_not_of(whiteSpace), json.size()));
  if (json.empty()) {
    return {};
  }
  const std::string_view token = json.substr(0, tokenLength(json));
  json.remove_prefix(token.size());
  return token;
}

}  // namespace quillmar
