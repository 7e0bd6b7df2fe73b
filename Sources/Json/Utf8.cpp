#include "Json/Utf8.h"

#include <cstdint>

namespace quillmar {

namespace {

/// The length of the well-formed sequence at the front of `text`, or 0.
std::size_t sequenceLength(std::string_view text) noexcept {
  const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byte(0);
  if (lead < 0x80) {
    return 1;
  }
  // The second byte has a narrower range behind some lead bytes: no overlong forms, surrogates or values past U+10FFFF.
  std::size_t length = 0;
  std::uint8_t low = 0x80;
  std::uint8_t high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    low = lead == 0xE0 ? 0xA0 : low;
    high = lead == 0xED ? 0x9F : high;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    low = lead == 0xF0 ? 0x90 : low;
    high = lead == 0xF4 ? 0x8F : high;
  }
  if (length == 0 || text.size() < length || byte(1) < low || byte(1) > high) {
    return 0;
  }
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return 0;
    }
  }
  return length;
}

}  // namespace

std::size_t validUtf8Prefix(std::string_view text) noexcept {
  std::size_t position = 0;
  while (position < text.size()) {
    const std::size_t length = sequenceLength(text.substr(position));
    if (length == 0) {
      break;
    }
    position += length;
  }
  return position;
}

std::string repairedUtf8(std::string text) {
  std::size_t valid = validUtf8Prefix(text);
  if (valid == text.size()) {
    return text;
  }
  std::string repaired;
  for (std::string_view rest = text;; valid = validUtf8Prefix(rest)) {
    repaired += rest.substr(0, valid);
    if (valid == rest.size()) {
      return repaired;
    }
    repaired += "\xEF\xBF\xBD";
    rest.remove_prefix(valid + 1);
  }
}

}  // namespace quillmar
