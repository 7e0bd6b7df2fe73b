#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillmar::insight {

/// A value of a JSON document and where it begins. For a member, that is where its name is.
struct JsonNode {
  std::string name = {};  ///< of a member; empty for elements
  std::size_t line = 1;
  bool isArray = false;
  std::vector<JsonNode> children = {};
  /// The members by name; of several the last, as the parser takes it.
  std::map<std::string, std::size_t, std::less<>> members = {};
};

/// A name for a person to read: in quotes, and long ones are cut.
std::string quoted(std::string_view name);

/// A place in a document, with its JSON path. Must not outlive the document.
class Place {
 public:
  /// The root.
  explicit Place(const JsonNode& root) : node_(&root), path_("$") {}

  const std::string& path() const noexcept { return path_; }
  std::size_t line() const noexcept { return node_->line; }

  /// This place itself when it has no member of that name.
  Place member(std::string_view name) const;

  /// Likewise.
  Place element(std::size_t index) const;

  /// The place that a reader's path, such as values[0].key, leads to from here, as far as it can be followed.
  Place below(std::string_view readerPath) const;

  std::vector<Place> children() const;
  const std::string& name() const noexcept { return node_->name; }

 private:
  Place(const JsonNode& node, std::string path) : node_(&node), path_(std::move(path)) {}
  Place child(std::size_t index) const;

  const JsonNode* node_;
  std::string path_;
};

/// The places of a document, down to what a configuration has: its rules' required events.
class JsonPlaces {
 public:
  /// `text` is valid JSON.
  explicit JsonPlaces(std::string_view text);

  Place root() const { return Place(root_); }

  /// A member whose name another one of the same object has, too.
  struct Repeated {
    std::string path;
    std::size_t firstLine;
    std::size_t line;
  };
  const std::vector<Repeated>& repeated() const noexcept { return repeated_; }

 private:
  JsonNode root_;
  std::vector<Repeated> repeated_;
};

}  // namespace quillmar::insight
