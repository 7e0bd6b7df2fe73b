#include "Conversion/RuleExplanation.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Json/DecimalNumber.h"

namespace quillmar {

namespace {

/// "9.99 and 74.9 seen": of the revenues, the two that are nearest to what is wanted.
std::string seen(const std::set<double>& revenues, double wanted) {
  if (revenues.empty()) {
    return "seen without a revenue";
  }
  const auto above = revenues.lower_bound(wanted);
  std::string text = above == revenues.begin() ? "" : decimalText(*std::prev(above));
  if (above != revenues.end()) {
    text += (text.empty() ? "" : " and ") + decimalText(*above);
  }
  return text + " seen";
}

/// What an event that is not met waits for.
std::string missing(const ConversionValues::RequiredEvent& event, const RevenuesByName& history) {
  const auto found = history.find(std::string_view(event.name));
  if (!event.revenueMin || !event.revenueMax) {
    return event.name + ": not seen";
  }
  return event.name + ": " + (found == history.end() ? "not seen" : seen(found->second, *event.revenueMin)) + ", " +
         decimalText(*event.revenueMin) + " to " + decimalText(*event.revenueMax) + " wanted";
}

}  // namespace

Decision::Rule explained(const std::string& key, const ConversionValues::WindowValue& value,
                         const RevenuesByName& history) {
  Decision::Rule rule;
  rule.key = key;
  const auto look = [&](const auto& half, auto& reported, bool& complete) {
    if (!half) {
      return;
    }
    reported = half->value;
    complete = true;
    for (const auto& event : half->requiredEvents) {
      if (isMet(event, history)) {
        continue;
      }
      complete = false;
      std::string text = missing(event, history);
      if (std::ranges::count(rule.missing, text) == 0) {  // both halves often want the same
        rule.missing.push_back(std::move(text));
      }
    }
  };
  look(value.fineValue, rule.fineValue, rule.fineComplete);
  look(value.coarseValue, rule.coarseValue, rule.coarseComplete);
  return rule;
}

}  // namespace quillmar
