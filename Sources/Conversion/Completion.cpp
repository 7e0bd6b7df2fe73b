#include "Conversion/Completion.h"

#include <algorithm>

namespace quillmar {

bool addEvent(RevenuesByName& history, const std::string& name, std::optional<double> revenue) {
  const auto [entry, isNewName] = history.try_emplace(name);
  const bool isNewRevenue = revenue && entry->second.insert(*revenue).second;
  return isNewName || isNewRevenue;
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

std::vector<ConversionValues::RequiredEvent>::const_iterator firstUnmet(
    const std::vector<ConversionValues::RequiredEvent>& events, const RevenuesByName& history) {
  return std::find_if_not(events.begin(), events.end(),
                          [&history](const auto& event) { return isMet(event, history); });
}

bool isComplete(const ConversionValues::WindowValue& value, const RevenuesByName& history) {
  const auto isHalfComplete = [&history](const auto& half) {
    return half && firstUnmet(half->requiredEvents, history) == half->requiredEvents.end();
  };
  return isHalfComplete(value.fineValue) || isHalfComplete(value.coarseValue);
}

Rules completeRules(const ConversionValues& values, Window window, const RevenuesByName& history) {
  Rules complete;
  for (const auto& rule : values.values) {
    const ConversionValues::WindowValue* const value = rule.windowValue(window);
    if (value != nullptr && isComplete(*value, history)) {
      complete.push_back(&rule);
    }
  }
  return complete;
}

}  // namespace quillmar
