#include "Conversion/Completion.h"

#include <algorithm>

namespace quillmar {

void addEvent(RevenuesByName& history, const std::string& name, std::optional<double> revenue) {
  std::set<double>& revenues = history[name];
  if (revenue) {
    revenues.insert(*revenue);
  }
}

bool isMet(const ConversionValues::RequiredEvent& event, const RevenuesByName& history) {
  const auto found = history.find(std::string_view(event.name));
  if (found == history.end()) {
    return false;
  }
  if (!event.revenueMin || !event.revenueMax) {
    return true;
  }
  const std::set<double>& revenues = found->second;
  const auto candidate = revenues.lower_bound(*event.revenueMin);
  return candidate != revenues.end() && *candidate <= *event.revenueMax;
}

bool isComplete(const ConversionValues::WindowValue& value, const RevenuesByName& history) {
  const auto isHalfComplete = [&history](const auto& half) {
    return half && std::all_of(half->requiredEvents.begin(), half->requiredEvents.end(),
                               [&history](const auto& event) { return isMet(event, history); });
  };
  return isHalfComplete(value.fineValue) || isHalfComplete(value.coarseValue);
}

}  // namespace quillmar
