#pragma once

#include <string>

namespace quillmar {

/// A map as the log shows it: ["revenue": 9.99], or [:] when it is empty. `describe` gives the text of a value.
template <class Map, class Describe>
std::string mapText(const Map& map, Describe describe) {
  std::string text;
  text.reserve(64);
  for (const auto& [name, value] : map) {
    text += text.empty() ? "[\"" : ", \"";
    text += name;
    text += "\": ";
    text += describe(value);
  }
  return text.empty() ? "[:]" : text + "]";
}

}  // namespace quillmar
