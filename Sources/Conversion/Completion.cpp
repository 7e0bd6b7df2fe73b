#include "Conversion/Completion.h"

#include <algorithm>
#include <limits>

namespace quillmar {

bool addEvent(RevenuesByName& history, const std::string& name, std::optional<double> revenue) {
  const auto [entry, isNewName] = history.try_emplace(name);
  const bool isNewRevenue = revenue && entry->second.insert(*revenue).second;
  return isNewName || isNewRevenue;
}

bool isMet(const ConversionValues::RequiredEvent& event, const RevenuesByName& history, SingleBound single) {
  const auto found = history.find(std::string_view(event.name));
  if (found == history.end()) {
    return false;
  }
  const int bounds = (event.revenueMin ? 1 : 0) + (event.revenueMax ? 1 : 0);
  if (bounds == 0 || (bounds == 1 && single == SingleBound::ignored)) {
    return true;
  }
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const std::set<double>& revenues = found->second;
  const auto candidate = revenues.lower_bound(event.revenueMin.value_or(-infinity));
  return candidate != revenues.end() && *candidate <= event.revenueMax.value_or(infinity);
}

std::vector<ConversionValues::RequiredEvent>::const_iterator firstUnmet(
    const std::vector<ConversionValues::RequiredEvent>& events, const RevenuesByName& history, SingleBound single) {
  return std::find_if_not(events.begin(), events.end(),
                          [&](const auto& event) { return isMet(event, history, single); });
}

namespace {

template <class Half>
bool isHalfComplete(const std::optional<Half>& half, const RevenuesByName& history, SingleBound single) {
  return half && firstUnmet(half->requiredEvents, history, single) == half->requiredEvents.end();
}

}  // namespace

bool isComplete(const ConversionValues::WindowValue& value, const RevenuesByName& history) {
  return isHalfComplete(value.fineValue, history, SingleBound::ignored) ||
         isHalfComplete(value.coarseValue, history, SingleBound::ignored);
}

ConversionValues::WindowValue completeHalves(const ConversionValues::WindowValue& value, const RevenuesByName& history,
                                             SingleBound single) {
  ConversionValues::WindowValue halves;
  if (isHalfComplete(value.fineValue, history, single)) {
    halves.fineValue = value.fineValue;
  }
  if (isHalfComplete(value.coarseValue, history, single)) {
    halves.coarseValue = value.coarseValue;
  }
  return halves;
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
