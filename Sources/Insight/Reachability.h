#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Conversion/Completion.h"
#include "quillmar/ConversionValues.h"

namespace quillmar::insight {

/// An event that an app could send.
struct SampleEvent {
  std::string name;
  std::optional<double> revenue;
};

/// "purchase" with revenue 30, then "trial".
std::string describe(const std::vector<SampleEvent>& events);

/// Whether a rule can be sent in a window.
struct Reachability {
  enum class Verdict : std::uint8_t {
    sent,           ///< after the events, the library sends the rule
    dead,           ///< never: whenever it is complete, another one is sent; after the events, `sentInstead`
    neverComplete,  ///< never: no events complete it
    undecided,      ///< the search was given up
  };

  Verdict verdict = Verdict::undecided;
  std::vector<SampleEvent> events;
  const ConversionValues::ConversionValue* sentInstead = nullptr;
};

/// How much may be done for the verdicts of a document: so many rules and required events may be looked at.
struct Effort {
  std::size_t left = 20'000'000;
  std::size_t forOne = 1'000'000;  ///< for one verdict, so that a hard one leaves something for the others
};

/// Decides which rules of a configuration can be sent in a window.
///
/// A rule can be sent when there is a history of events after which the library chooses it. There are infinitely many
/// histories, but few need a look:
///
/// 1. What counts of a history is the set of names, and of revenues for each name. The bounds of all rules cut the
///    revenues into classes: what lies between two neighbouring bounds, and the bounds at which one range ends and
///    another begins. Revenues of one class meet the same requirements, so one of each stands for all. An event without
///    a revenue meets nothing that one with a revenue does not meet.
/// 2. More events complete more rules, never fewer. So the search begins without events and adds only what is needed,
///    trying each way to get it, and turns back where something is complete that must not be. When there is a history
///    that does it, one way of the search stays within it until nothing is needed any more.
///
/// What is needed and what must not be there follows from `lowestRanked`. It chooses rule R in one of two ways:
///
/// - R is the first that none ranks below. Needed: R; for each rule before R that ranks the same, one below that. Must
///   not be there: any rule below R. Where the ranking is consistent, what is below the other is below R, so no rule
///   before R that ranks the same may be there either.
/// - Each completed rule has one below it, which takes an inconsistent ranking. The sort by insertion then puts first
///   the last rule that ranks below all before it. Needed: R; below each, another one; before each later rule that is
///   below all before it, one that it is not below. Must not be there: a rule before R that R does not rank below.
///
/// The search may take exponential time, where rules require many events with revenues each. It gives up then, and
/// says so.
class ReachabilityAnalysis {
 public:
  using Rule = ConversionValues::ConversionValue;

  /// `rules` are those of a configuration that have a value for the window, in its order. They are pointed to.
  ReachabilityAnalysis(std::vector<const Rule*> rules, Window window);

  /// The verdict on the rule at `index`. What it takes is taken from `effort`.
  Reachability decide(std::size_t index, Effort& effort) const;

  /// An event that no rule requires, and of those that rules require one of each kind.
  std::vector<SampleEvent> events() const;

  /// Three rules whose ranking is a circle. There are such wherever the ranking is inconsistent.
  struct Inconsistency {
    const Rule* lower;        ///< has the lower fine value of two
    const Rule* higher;       ///< has the higher one, and not the higher coarse value
    const Rule* withoutFine;  ///< ranks by its coarse value only: not below `higher`, not above `lower`
  };
  const std::optional<Inconsistency>& inconsistency() const noexcept { return inconsistency_; }

 private:
  class Search;

  void findEvents();
  void findInconsistency();
  std::vector<std::size_t> completedBy(const RevenuesByName& history) const;
  bool isBelow(std::size_t a, std::size_t b) const;
  std::vector<double> revenuesFor(const ConversionValues::RequiredEvent& event) const;
  std::vector<SampleEvent> withAnEvent(std::vector<SampleEvent> events) const;

  const std::vector<const Rule*> rules_;
  const Window window_;
  std::vector<const ConversionValues::WindowValue*> values_;
  std::size_t size_ = 0;                                              ///< rules and their required events
  std::set<std::string> names_;                                       ///< of the events that rules require
  std::map<std::string, std::vector<double>, std::less<>> revenues_;  ///< one of each class, by the name of the event
  std::string otherEvent_ = "any other event";                        ///< a name that no rule requires
  std::optional<Inconsistency> inconsistency_;
};

}  // namespace quillmar::insight
