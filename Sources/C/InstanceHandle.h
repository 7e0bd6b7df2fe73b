#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "C/PlatformHandle.h"
#include "quillmar/Quillmar.h"

struct quillmar_instance : quillmar::Counted {
  std::shared_ptr<quillmar::Quillmar> object;
};

namespace quillmar {

/// As much as there is room for, and a zero behind it. Gives the length of the whole text.
inline std::size_t copyText(const std::string& text, char* buffer, std::size_t capacity) noexcept {
  if (buffer != nullptr && capacity > 0) {
    const std::size_t copied = std::min(text.size(), capacity - 1);
    std::memcpy(buffer, text.data(), copied);
    buffer[copied] = '\0';
  }
  return text.size();
}

}  // namespace quillmar
