#include "Insight/Requirements.h"

#include <algorithm>

namespace quillmar::insight {

bool hasRange(const Requirement& event) noexcept {
  return event.revenueMin && event.revenueMax;
}

bool canBeMet(const Requirement& event) noexcept {
  return !hasRange(event) || *event.revenueMin <= *event.revenueMax;
}

bool meanTheSame(const Requirement& a, const Requirement& b) noexcept {
  return hasRange(a) || hasRange(b) ? a == b : a.name == b.name;
}

std::vector<const Requirements*> waysToComplete(const ConversionValues::WindowValue& value) {
  std::vector<const Requirements*> ways;
  const auto add = [&ways](const auto& half) {
    if (half && std::all_of(half->requiredEvents.begin(), half->requiredEvents.end(), canBeMet)) {
      ways.push_back(&half->requiredEvents);
    }
  };
  add(value.fineValue);
  add(value.coarseValue);
  return ways;
}

}  // namespace quillmar::insight
