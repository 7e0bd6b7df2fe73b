#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <tuple>

#include "Conversion/LowestRanked.h"
#include "Insight/Checks.h"

namespace quillmar::insight {

namespace {

using Entry = WindowVerdicts::Entry;

/// Follows the rules of window 0 from the lowest fine value up, as an install that does more and more would.
void checkGrowth(const WindowVerdicts& verdicts, CheckReport& report) {
  std::vector<const Entry*> path;
  for (const Entry& entry : verdicts.entries) {
    if (entry.value->fineValue && entry.reachability.verdict == Reachability::Verdict::sent) {
      path.push_back(&entry);
    }
  }
  std::sort(path.begin(), path.end(), [](const Entry* a, const Entry* b) {
    return std::tie(a->value->fineValue->value, a) < std::tie(b->value->fineValue->value, b);
  });
  RevenuesByName history;
  std::optional<std::int64_t> before;
  for (std::size_t i = 0; i < path.size(); ++i) {
    for (const SampleEvent& event : path[i]->reachability.events) {
      addEvent(history, event.name, event.revenue);
    }
    std::vector<const ConversionValues::ConversionValue*> completed;
    for (const Entry& entry : verdicts.entries) {
      if (isComplete(*entry.value, history)) {
        completed.push_back(&entry.rule->value);
      }
    }
    const auto& fine = lowestRanked(completed, verdicts.window)->windowValue(verdicts.window)->fineValue;
    const std::int64_t sent = fine ? fine->value : std::max<std::int64_t>(before.value_or(0), 0);
    if (before && sent <= *before) {
      add(report, Severity::note, "value-not-growing", path[i]->rule->windowPlace(verdicts.window),
          fmt::format("For ads signed with version 3 or earlier only a greater value counts. An install that completes "
                      "the rules of {} from the lowest fine value up reports {} at rule {} and {} at rule {}, which "
                      "changes nothing.",
                      rawValue(verdicts.window), *before, quoted(path[i - 1]->rule->value.key), sent,
                      quoted(path[i]->rule->value.key)),
          "Expect those ads to tell of the first step only.");
      return;
    }
    before = sent;
  }
}

}  // namespace

void checkSystems(const CheckedDocument& document, const std::vector<WindowVerdicts>& verdicts, CheckReport& report) {
  const auto hasCoarse = [](const WindowVerdicts& window) {
    return std::any_of(window.entries.begin(), window.entries.end(),
                       [](const Entry& entry) { return entry.value->coarseValue.has_value(); });
  };
  if (!document.locks.empty() || std::any_of(verdicts.begin(), verdicts.end(), hasCoarse)) {
    add(report, Severity::note, "before-16.1", document.root,
        "On systems before 16.1 no coarse value and no lock reaches the platform, only fine values.",
        "Expect nothing of windows 1 and 2 from them.");
  }
  if (!document.rules.empty()) {
    add(report, Severity::note, "before-15.4", document.root,
        "Systems before 15.4 do not answer: a value that they refuse counts as sent. Before 14.0 no value reaches the "
        "platform, only that the app was launched.",
        "Expect no values from systems before 14.0.");
  }
  checkGrowth(verdicts.front(), report);
}

}  // namespace quillmar::insight
