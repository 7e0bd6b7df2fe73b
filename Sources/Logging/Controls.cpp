#include "Logging/Controls.h"

#include <fmt/format.h>

#include <iterator>

namespace quillmar {

namespace {

/// Whether a control may start with this byte. Without branches, so that many bytes are looked at in one step.
bool mayStartControl(char letter) noexcept {
  const auto byte = static_cast<std::uint8_t>(letter);
  return (byte < 0x20) | (byte == 0x7F) | (byte == 0xC2) | (byte == 0xE2);
}

struct Control {
  std::size_t length = 0;  ///< in bytes; 0: none
  unsigned codePoint = 0;
};

/// The control at the front of `text`. The bytes before do not matter: broken UTF-8 there must not hide it.
Control controlAtFront(std::string_view text) noexcept {
  const auto byte = [text](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0;
  };
  if (byte(0) < 0x20 || byte(0) == 0x7F) {
    return {1, byte(0)};
  }
  if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) <= 0x9F) {
    return {2, byte(1)};
  }
  if (byte(0) == 0xE2 && ((byte(1) == 0x80 && byte(2) >= 0xA8 && byte(2) <= 0xAE) ||
                          (byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9))) {
    return {3, 0x2000U | (byte(1) & 0x3FU) << 6U | (byte(2) & 0x3FU)};
  }
  return {};
}

void appendEscape(std::string& text, unsigned codePoint) {
  switch (codePoint) {
    case '\n':
      text += "\\n";
      break;
    case '\r':
      text += "\\r";
      break;
    case '\t':
      text += "\\t";
      break;
    default:
      fmt::format_to(std::back_inserter(text), "\\u{:04x}", codePoint);
  }
}

}  // namespace

bool mayHoldControls(std::string_view text) noexcept {
  bool found = false;
  for (const char letter : text) {
    found |= mayStartControl(letter);
  }
  return found;
}

std::string withoutControls(std::string_view text, LineEnds lineEnds) {
  std::string result;
  std::size_t plainFrom = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const Control control = mayStartControl(text[i]) ? controlAtFront(text.substr(i)) : Control{};
    if (control.length == 0 || (control.codePoint == '\n' && lineEnds == LineEnds::kept)) {
      continue;
    }
    result += text.substr(plainFrom, i - plainFrom);
    appendEscape(result, control.codePoint);
    plainFrom = i + control.length;  // no byte before it starts another
  }
  return result += text.substr(plainFrom);
}

}  // namespace quillmar
