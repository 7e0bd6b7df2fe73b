#include "Conversion/LowestRanked.h"

#include <algorithm>

namespace quillmar {

const ConversionValues::ConversionValue* lowestRanked(
    const std::vector<const ConversionValues::ConversionValue*>& completed, Window window) {
  const auto isBelow = [window](const auto* a, const auto* b) { return a->compareWindowValue(*b, window) < 0; };
  // In a consistent order this is the one. It is asked first, so that all others are done with at once.
  const auto* const likely = *std::min_element(completed.begin(), completed.end(), isBelow);
  for (const auto* const value : completed) {
    const auto isBelowValue = [&](const auto* other) { return isBelow(other, value); };
    if (!isBelowValue(likely) && std::none_of(completed.begin(), completed.end(), isBelowValue)) {
      return value;
    }
  }
  std::vector<const ConversionValues::ConversionValue*> sorted;
  for (const auto* const value : completed) {
    const auto last =
        std::find_if_not(sorted.rbegin(), sorted.rend(), [&](const auto* other) { return isBelow(value, other); });
    sorted.insert(last.base(), value);
  }
  return sorted.front();
}

}  // namespace quillmar
