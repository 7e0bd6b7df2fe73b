#pragma once

#include <optional>
#include <string>

#include "C/Structures.h"

struct quillmar_bytes {
  std::optional<std::string> content;
};
