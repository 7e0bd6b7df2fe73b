#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "Insight/Checks.h"
#include "Insight/Requirements.h"
#include "Json/DecimalNumber.h"

namespace quillmar::insight {

namespace {

/// A gap of a cent, and what numbers with a fraction may add to it.
constexpr double aCent = 0.0100001;

/// What a half that requires one event, with a revenue, earns.
struct Range {
  double min;
  double max;
  std::int64_t earns;  ///< fine or coarse value
  const CheckedRule* rule;
  Place place;
};

using RangesByEvent = std::map<std::string, std::vector<Range>>;

template <class Half>
void collect(RangesByEvent& ranges, const std::optional<Half>& half, const CheckedRule& rule, const Place& place) {
  if (half && half->requiredEvents.size() == 1) {
    const Requirement& event = half->requiredEvents.front();
    if (hasRange(event) && canBeMet(event)) {
      ranges[event.name].push_back({*event.revenueMin, *event.revenueMax, static_cast<std::int64_t>(half->value), &rule,
                                    place.member("requiredEvents").element(0)});
    }
  }
}

/// Compares the ranges of one window, those of fine values and then those of coarse values. Of two rules it speaks
/// once.
class RangeCheck {
 public:
  RangeCheck(Window window, CheckReport& report) : window_(window), report_(report) {}

  void check(RangesByEvent ranges) {
    for (auto& [name, ofEvent] : ranges) {
      std::sort(ofEvent.begin(), ofEvent.end(), [](const Range& a, const Range& b) {
        return std::tie(a.min, a.max, a.rule) < std::tie(b.min, b.max, b.rule);
      });
      const Range* widest = nullptr;  // of those before, the one that goes up furthest
      for (const Range& range : ofEvent) {
        if (widest != nullptr && range.rule != widest->rule && range.earns != widest->earns &&
            told_.insert({range.rule, widest->rule}).second) {
          compare(quoted(name), *widest, range);
        }
        widest = widest == nullptr || range.max > widest->max ? &range : widest;
      }
    }
  }

 private:
  void compare(const std::string& event, const Range& lower, const Range& upper) {
    const std::string below = quoted(lower.rule->value.key);
    const std::string above = quoted(upper.rule->value.key);
    if (upper.min > lower.max) {
      add(report_, upper.min - lower.max > aCent ? Severity::warning : Severity::note, "range-gap", upper.place,
          fmt::format("In {} a {} with a revenue above {} and below {} is neither for rule {} nor for rule {}.",
                      rawValue(window_), event, decimalText(lower.max), decimalText(upper.min), below, above),
          "Let one range begin where the other ends; both bounds belong to the range.");
    } else if (upper.min == lower.max) {
      add(report_, Severity::note, "range-overlap", upper.place,
          fmt::format(
              "In {} a {} with a revenue of exactly {} is for both rule {} and rule {}; the lower-ranked is sent.",
              rawValue(window_), event, decimalText(upper.min), below, above),
          "Leave it, if that is meant.");
    } else {
      add(report_, Severity::warning, "range-overlap", upper.place,
          fmt::format(
              "In {} a {} with a revenue from {} to {} is for both rule {} and rule {}; the lower-ranked is sent.",
              rawValue(window_), event, decimalText(upper.min), decimalText(std::min(lower.max, upper.max)), below,
              above),
          "Let one range begin where the other ends.");
    }
  }

  const Window window_;
  CheckReport& report_;
  std::set<std::pair<const CheckedRule*, const CheckedRule*>> told_;
};

}  // namespace

void checkRanges(const CheckedDocument& document, CheckReport& report) {
  for (const Window window : allWindows) {
    RangesByEvent fine;
    RangesByEvent coarse;
    for (const CheckedRule& rule : document.rules) {
      if (const auto* const value = rule.value.windowValue(window)) {
        collect(fine, value->fineValue, rule, rule.windowPlace(window).member("fineValue"));
        collect(coarse, value->coarseValue, rule, rule.windowPlace(window).member("coarseValue"));
      }
    }
    RangeCheck check(window, report);
    check.check(std::move(fine));
    check.check(std::move(coarse));
  }
}

}  // namespace quillmar::insight
