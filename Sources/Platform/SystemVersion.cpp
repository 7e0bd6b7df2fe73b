#include "Platform/SystemVersion.h"

#include <algorithm>

namespace quillmar {

namespace {

/// Takes the first part of `version`, with its dot, away and returns its digits without leading zeros. Digits are
/// compared as text, so that no number is too long.
std::string_view takeNumber(std::string_view& version) noexcept {
  std::string_view part = version.substr(0, version.find('.'));
  version.remove_prefix(std::min(part.size() + 1, version.size()));
  part = part.substr(0, part.find_first_not_of("0123456789"));
  part.remove_prefix(std::min(part.find_first_not_of('0'), part.size()));
  return part;
}

}  // namespace

bool isVersionAtLeast(std::string_view version, std::string_view minimum) noexcept {
  while (!version.empty() || !minimum.empty()) {
    const std::string_view number = takeNumber(version);
    const std::string_view limit = takeNumber(minimum);
    if (number != limit) {
      return number.size() != limit.size() ? number.size() > limit.size() : number > limit;
    }
  }
  return true;
}

}  // namespace quillmar
