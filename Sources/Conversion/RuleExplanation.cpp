#include "Conversion/RuleExplanation.h"

#include <algorithm>
#include <iterator>
#include <tuple>
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
std::string missing(const ConversionValues::RequiredEvent& event, const RevenuesByName& history, SingleBound single) {
  const auto found = history.find(std::string_view(event.name));
  const auto& [min, max] = std::tie(event.revenueMin, event.revenueMax);
  std::string wanted;
  if (min && max) {
    wanted = decimalText(*min) + " to " + decimalText(*max);
  } else if ((min || max) && single == SingleBound::honoured) {
    wanted = min ? decimalText(*min) + " or more" : decimalText(*max) + " or less";
  } else {
    return event.name + ": not seen";
  }
  return event.name + ": " + (found == history.end() ? "not seen" : seen(found->second, min ? *min : *max)) + ", " +
         wanted + " wanted";
}

}  // namespace

Decision::Rule explained(const std::string& key, const ConversionValues::WindowValue& value,
                         const RevenuesByName& history, SingleBound single) {
  Decision::Rule rule;
  rule.key = key;
  const auto look = [&](const auto& half, auto& reported, bool& complete) {
    if (!half) {
      return;
    }
    reported = half->value;
    complete = true;
    for (const auto& event : half->requiredEvents) {
      if (isMet(event, history, single)) {
        continue;
      }
      complete = false;
      std::string text = missing(event, history, single);
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
