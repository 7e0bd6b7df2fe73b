#include "Network/Url.h"

#include <algorithm>
#include <cstddef>

namespace quillmar {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexDigits = "0123456789abcdefABCDEF";
constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view marks = "-._~!$&'()*+,;=";  ///< allowed in each part

bool isOneOf(char c, std::string_view characters) noexcept {
  return characters.find(c) != std::string_view::npos;
}

/// Whether the text is made of letters, digits, whole percent escapes, and of these characters.
bool isMadeOf(std::string_view text, std::string_view others) noexcept {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (text.size() - i < 3 || !isOneOf(text[i + 1], hexDigits) || !isOneOf(text[i + 2], hexDigits)) {
        return false;
      }
      i += 2;
    } else if (!isOneOf(text[i], letters) && !isOneOf(text[i], digits) && !isOneOf(text[i], marks) &&
               !isOneOf(text[i], others)) {
      return false;
    }
  }
  return true;
}

/// Takes what comes before the first of these characters off the front.
std::string_view takeUntil(std::string_view& text, std::string_view ends) noexcept {
  const std::string_view taken = text.substr(0, text.find_first_of(ends));
  text.remove_prefix(taken.size());
  return taken;
}

bool isScheme(std::string_view text) noexcept {
  return !text.empty() && isOneOf(text.front(), letters) && std::all_of(text.begin(), text.end(), [](char c) {
    return isOneOf(c, letters) || isOneOf(c, digits) || isOneOf(c, "+-.");
  });
}

bool isAuthority(std::string_view text) noexcept {
  if (const std::size_t at = text.find('@'); at != std::string_view::npos) {
    if (!isMadeOf(text.substr(0, at), ":")) {
      return false;
    }
    text.remove_prefix(at + 1);
  }
  const bool bracketed = text.starts_with('[');
  std::string_view host = takeUntil(text, bracketed ? "]" : ":");
  if (bracketed) {
    if (text.empty() || host.find_first_not_of("0123456789abcdefABCDEF:.", 1) != std::string_view::npos) {
      return false;
    }
    host.remove_prefix(1);
    text.remove_prefix(1);
  }
  const bool portIsGood = text.empty() || (text.front() == ':' && text.find_first_not_of(digits, 1) == text.npos);
  return !host.empty() && (bracketed || isMadeOf(host, "")) && portIsGood;
}

}  // namespace

bool isUrl(std::string_view text) noexcept {
  const std::string_view scheme = takeUntil(text, ":");
  if (!isScheme(scheme) || !text.starts_with("://")) {
    return false;
  }
  text.remove_prefix(3);
  if (!isAuthority(takeUntil(text, "/?#"))) {
    return false;
  }
  const std::string_view pathAndQuery = takeUntil(text, "#");
  return isMadeOf(pathAndQuery, "/?:@") && (text.empty() || isMadeOf(text.substr(1), "/?:@"));
}

}  // namespace quillmar
