#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "Insight/Checks.h"

namespace quillmar::insight {

namespace {

using Entry = WindowVerdicts::Entry;

bool reportTheSame(const ConversionValues::WindowValue& a, const ConversionValues::WindowValue& b) {
  const auto earnTheSame = [](const auto& one, const auto& other) {
    return one.has_value() == other.has_value() && (!one || one->value == other->value);
  };
  return earnTheSame(a.fineValue, b.fineValue) && earnTheSame(a.coarseValue, b.coarseValue);
}

void checkEqualRanks(const std::vector<Entry>& entries, Window window, Effort& effort, CheckReport& report) {
  for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
    const auto compared = static_cast<std::size_t>(entry - entries.begin());
    if (effort.left < compared) {
      return;
    }
    effort.left -= compared;
    const auto same = std::find_if(entries.begin(), entry, [&](const Entry& earlier) {
      return entry->rule->value.compareWindowValue(earlier.rule->value, window) == 0;
    });
    if (same == entry) {
      continue;
    }
    const std::string first = quoted(same->rule->value.key);
    const std::string second = quoted(entry->rule->value.key);
    if (reportTheSame(*same->value, *entry->value)) {
      add(report, Severity::note, "rank-equal", entry->rule->windowPlace(window),
          fmt::format(
              "Rule {} reports the same as rule {} in {}. When both are complete, {} is sent, the first of them.",
              second, first, rawValue(window), first),
          "Leave it, if both events shall earn that value.");
    } else {
      add(report, Severity::warning, "rank-equal", entry->rule->windowPlace(window),
          fmt::format(
              "Rule {} ranks the same as rule {} in {}, but reports something else. Of the two, the order of the "
              "configuration decides.",
              second, first, rawValue(window)),
          "Give each a fine value of its own.");
    }
  }
}

void tellInconsistency(const ReachabilityAnalysis::Inconsistency& found, const std::vector<Entry>& entries,
                       Window window, CheckReport& report) {
  const auto entry = std::find_if(entries.begin(), entries.end(),
                                  [&found](const Entry& one) { return &one.rule->value == found.withoutFine; });
  add(report, Severity::warning, "ranking-not-transitive", entry->rule->windowPlace(window),
      fmt::format(
          "In {} rules with and without a fine value are mixed, so that the ranking goes in a circle: rule {} "
          "ranks below rule {} by its fine value, but by coarse values {} does not rank above {}, nor {} above {}. "
          "Which of them is sent depends on their order, and on what else is complete.",
          rawValue(window), quoted(found.lower->key), quoted(found.higher->key), quoted(found.higher->key),
          quoted(found.withoutFine->key), quoted(found.withoutFine->key), quoted(found.lower->key)),
      "Give all rules of the window a fine value, or none.");
}

void tellVerdict(const Entry& entry, Window window, CheckReport& report) {
  const std::string key = quoted(entry.rule->value.key);
  const Place place = entry.rule->windowPlace(window);
  if (entry.reachability.verdict == Reachability::Verdict::dead) {
    const std::string& instead = entry.reachability.sentInstead->key;
    add(report, Severity::error, "unreachable", place,
        fmt::format(
            "Rule {} is never sent in {}: whenever it is complete, so is one that goes first. After {}, rule {} is "
            "sent.",
            key, rawValue(window), describe(entry.reachability.events), quoted(instead)),
        fmt::format(
            "Of the rules that are complete the lowest-ranked is sent. Rank {} above {}, or let it require what "
            "{} does not.",
            quoted(instead), key, key))
        .shadowedBy = instead;
  } else if (entry.reachability.verdict == Reachability::Verdict::undecided) {
    add(report, Severity::note, "undecided", place,
        fmt::format("Whether rule {} can be sent in {} was not decided: there are too many combinations of events and "
                    "revenues.",
                    key, rawValue(window)),
        "Try it with \"quillmar simulate\".");
  }
}

}  // namespace

std::vector<WindowVerdicts> checkReachability(const CheckedDocument& document, Effort effort, CheckReport& report) {
  std::vector<WindowVerdicts> verdicts;
  for (const Window window : allWindows) {
    std::vector<Entry> entries;
    std::vector<const ConversionValues::ConversionValue*> rules;
    for (const CheckedRule& rule : document.rules) {
      if (const auto* const value = rule.value.windowValue(window)) {
        entries.push_back({&rule, value, {}});
        rules.push_back(&rule.value);
      }
    }
    const ReachabilityAnalysis analysis(std::move(rules), window);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      entries[i].reachability = analysis.decide(i, effort);
      tellVerdict(entries[i], window, report);
    }
    checkEqualRanks(entries, window, effort, report);
    if (const auto& inconsistency = analysis.inconsistency()) {
      tellInconsistency(*inconsistency, entries, window, report);
    }
    verdicts.push_back({window, std::move(entries)});
  }
  return verdicts;
}

}  // namespace quillmar::insight
