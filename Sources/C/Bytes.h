#pragma once

#include <optional>
#include <string>
#include <system_error>

#include "C/Structures.h"

struct quillmar_bytes {
  std::optional<std::string> content;
};

namespace quillmar {

/// Of a number that a table gave.
inline std::error_code errorOf(std::int32_t number) noexcept {
  return {number, std::generic_category()};
}

}  // namespace quillmar
