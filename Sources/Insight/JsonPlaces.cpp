#include "Insight/JsonPlaces.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "Json/JsonParser.h"
#include "Json/JsonToken.h"
#include "Json/Utf8.h"

namespace quillmar::insight {

namespace {

/// $.values[0].windows.window0.fineValue.requiredEvents[0].name
constexpr std::size_t deepest = 8;

constexpr std::size_t longestName = 64;

std::string shortened(std::string_view name) {
  if (name.size() <= longestName) {
    return std::string(name);
  }
  const std::string_view begin = name.substr(0, longestName);
  return std::string(begin.substr(0, validUtf8Prefix(begin))) + "...";
}

std::string nameIn(std::string_view token) {
  if (token.find('\\') == token.npos) {
    return std::string(token.substr(1, token.size() - 2));
  }
  const boost::json::value name = parseJson(token);
  return {name.get_string().data(), name.get_string().size()};
}

std::string pathOfChild(const std::string& path, const JsonNode& parent, std::size_t index) {
  return parent.isArray ? fmt::format("{}[{}]", path, index)
                        : fmt::format("{}.{}", path, shortened(parent.children[index].name));
}

/// An object or an array that has not ended.
struct Open {
  JsonNode* node;
  std::string path;
  bool expectsName;
};

}  // namespace

std::string quoted(std::string_view name) {
  return '"' + shortened(name) + '"';
}

Place Place::child(std::size_t index) const {
  return {node_->children[index], pathOfChild(path_, *node_, index)};
}

Place Place::member(std::string_view name) const {
  const auto found = node_->members.find(name);
  return found != node_->members.end() ? child(found->second) : *this;
}

Place Place::element(std::size_t index) const {
  return node_->isArray && index < node_->children.size() ? child(index) : *this;
}

Place Place::below(std::string_view readerPath) const {
  if (node_->isArray && readerPath.starts_with('[')) {
    const std::size_t end = std::min(readerPath.find(']'), readerPath.size() - 1);
    std::size_t index = node_->children.size();
    std::from_chars(readerPath.data() + 1, readerPath.data() + end, index);
    return index < node_->children.size() ? child(index).below(readerPath.substr(end + 1)) : *this;
  }
  readerPath.remove_prefix(readerPath.starts_with('.') ? 1 : 0);
  for (std::size_t end = 0; end < readerPath.size();) {  // a name may have such characters, too
    end = std::min(readerPath.find_first_of(".[", end + 1), readerPath.size());
    if (const auto found = node_->members.find(readerPath.substr(0, end)); found != node_->members.end()) {
      return child(found->second).below(readerPath.substr(end));
    }
  }
  return *this;
}

std::vector<Place> Place::children() const {
  std::vector<Place> places;
  for (std::size_t i = 0; i < node_->children.size(); ++i) {
    places.push_back(child(i));
  }
  return places;
}

JsonPlaces::JsonPlaces(std::string_view text) {
  std::vector<Open> open;
  std::size_t tooDeep = 0;  // so many are open below the deepest that is looked at
  std::size_t line = 1;
  const char* counted = text.data();
  for (std::string_view token = takeJsonToken(text); !token.empty(); token = takeJsonToken(text)) {
    line += static_cast<std::size_t>(std::count(std::exchange(counted, token.data()), token.data(), '\n'));
    const bool opens = token == "{" || token == "[";
    const bool closes = token == "}" || token == "]";
    if (tooDeep > 0) {
      tooDeep += opens ? 1 : 0;
      tooDeep -= closes ? 1 : 0;
      continue;
    }
    if (closes) {
      open.pop_back();
      continue;
    }
    Open* const around = open.empty() ? nullptr : &open.back();
    if (token == "," || token == ":") {
      around->expectsName = token == "," && !around->node->isArray;
      continue;
    }
    if (around != nullptr && around->expectsName) {
      around->expectsName = false;
      JsonNode& object = *around->node;
      const std::size_t index = object.children.size();
      object.children.push_back({.name = nameIn(token), .line = line});
      const auto [entry, isNew] = object.members.emplace(object.children.back().name, index);
      if (!isNew) {
        const std::size_t before = std::exchange(entry->second, index);
        repeated_.push_back({pathOfChild(around->path, object, index), object.children[before].line, line});
      }
      continue;
    }
    if (around != nullptr && around->node->isArray) {
      around->node->children.push_back({.line = line});
    }
    JsonNode& node = around == nullptr ? root_ : around->node->children.back();
    node.line = around == nullptr ? line : node.line;
    if (opens && open.size() == deepest) {
      tooDeep = 1;
    } else if (opens) {
      node.isArray = token == "[";
      open.push_back(
          {&node, around == nullptr ? "$" : pathOfChild(around->path, *around->node, around->node->children.size() - 1),
           token == "{"});
    }
  }
}

}  // namespace quillmar::insight
