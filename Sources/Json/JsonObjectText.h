#pragma once

#include <optional>
#include <string>
#include <utility>

namespace quillmar {

/// A JSON object as the text that it came in. Passing on the text, and not what a parser made of it, keeps what a
/// parsed form cannot hold: integers of any size, the spelling of numbers and escapes, members that occur twice.
class JsonObjectText {
 public:
  /// Nothing for an array. A byte order mark is left out. Throws `DecodingErrorCode::dataCorrupted` for what is not
  /// JSON, or neither an object nor an array, or holds a number too large for a double or more than 64 levels.
  static std::optional<JsonObjectText> parse(std::string text);

  const std::string& text() const noexcept { return text_; }

  bool operator==(const JsonObjectText&) const = default;

 private:
  explicit JsonObjectText(std::string text) noexcept : text_(std::move(text)) {}

  std::string text_;
};

}  // namespace quillmar
