#include "Insight/Reachability.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "Conversion/LowestRanked.h"
#include "Insight/JsonPlaces.h"
#include "Insight/Requirements.h"
#include "Json/DecimalNumber.h"

namespace quillmar::insight {

namespace {

/// So many choices may be open in a search; it runs on the stack.
constexpr int deepestSearch = 200;

/// A number between two, with few digits if that can be; nothing when there is no double between them.
std::optional<double> between(double low, double high) {
  const double middle = low / 2 + high / 2;
  for (const double candidate :
       {std::round(middle), std::round(middle * 100) / 100, middle, std::nextafter(low, high)}) {
    if (low < candidate && candidate < high) {
      return candidate;
    }
  }
  return std::nullopt;
}

/// Events, and what counts of them.
struct History {
  std::vector<SampleEvent> events;
  RevenuesByName revenues;

  void add(const std::string& name, std::optional<double> revenue) {
    events.push_back({name, revenue});
    addEvent(revenues, name, revenue);
  }
};

}  // namespace

std::string describe(const std::vector<SampleEvent>& events) {
  std::string text;
  for (const SampleEvent& event : events) {
    text += text.empty() ? "" : ", ";
    text += quoted(event.name);
    text += event.revenue ? " with revenue " + decimalText(*event.revenue) : "";
  }
  return text;
}

/// The search for a history after which one rule is chosen, in one of the two ways of `lowestRanked`.
class ReachabilityAnalysis::Search {
 public:
  enum class Way : std::uint8_t { noneBelow, frontOfCircle };

  Search(const ReachabilityAnalysis& analysis, std::size_t rule, std::size_t& effort)
      : analysis_(analysis), rule_(rule), effort_(effort) {}

  std::optional<History> find(Way way) {
    way_ = way;
    return complete(History{}, rule_, deepestSearch);
  }

  /// There was too much to try.
  bool gaveUp() const noexcept { return gaveUp_; }

 private:
  using Completed = std::vector<std::size_t>;

  std::optional<History> complete(const History& history, std::size_t rule, int depth) {
    for (const Requirements* const way : waysToComplete(*analysis_.values_[rule])) {
      if (auto found = extend(history, *way, depth)) {
        return found;
      }
    }
    return std::nullopt;
  }

  /// Adds events that meet the requirements, then what else is needed.
  std::optional<History> extend(History history, const Requirements& requirements, int depth) {
    for (const Requirement& event : requirements) {
      if (!hasRange(event) && !isMet(event, history.revenues)) {
        history.add(event.name, std::nullopt);
      }
    }
    if (depth == 0 || !spend(analysis_.size_ + history.events.size())) {
      gaveUp_ = true;
      return std::nullopt;
    }
    const Completed completed = analysis_.completedBy(history.revenues);
    if (analysis_.inconsistency_ && !spend(completed.size() * completed.size())) {  // each is compared with each
      gaveUp_ = true;
      return std::nullopt;
    }
    if (std::any_of(completed.begin(), completed.end(), [this](std::size_t other) { return isInTheWay(other); })) {
      return std::nullopt;
    }
    const auto open = std::find_if_not(requirements.begin(), requirements.end(),
                                       [&history](const Requirement& event) { return isMet(event, history.revenues); });
    if (open != requirements.end()) {
      for (const double revenue : analysis_.revenuesFor(*open)) {
        History next = history;
        next.add(open->name, revenue);
        if (auto found = extend(std::move(next), requirements, depth - 1)) {
          return found;
        }
      }
      return std::nullopt;
    }
    const std::optional<Completed> needed = oneOfThemIsNeeded(completed);
    if (!needed) {
      return history;
    }
    for (const std::size_t other : *needed) {
      if (auto found = complete(history, other, depth - 1)) {
        return found;
      }
    }
    return std::nullopt;
  }

  bool spend(std::size_t effort) {
    const bool isThere = effort <= effort_;
    effort_ -= isThere ? effort : 0;
    return isThere;
  }

  bool isInTheWay(std::size_t other) const {
    return way_ == Way::noneBelow ? analysis_.isBelow(other, rule_) : other < rule_ && !analysis_.isBelow(rule_, other);
  }

  /// Rules of which one more must be complete; nothing when the rule is the one that is sent.
  std::optional<Completed> oneOfThemIsNeeded(const Completed& completed) const {
    for (const std::size_t other : completed) {
      const bool mustHaveOneBelow = way_ == Way::frontOfCircle || (other < rule_ && !analysis_.isBelow(rule_, other));
      if (mustHaveOneBelow && std::none_of(completed.begin(), completed.end(),
                                           [&](std::size_t third) { return analysis_.isBelow(third, other); })) {
        return rulesWhere([&](std::size_t third) { return analysis_.isBelow(third, other) && !isInTheWay(third); });
      }
      if (way_ == Way::frontOfCircle && other > rule_ &&
          std::all_of(completed.begin(), std::find(completed.begin(), completed.end(), other),
                      [&](std::size_t earlier) { return analysis_.isBelow(other, earlier); })) {
        return rulesWhere([&](std::size_t earlier) {
          return earlier < other && !analysis_.isBelow(other, earlier) && !isInTheWay(earlier);
        });
      }
    }
    return std::nullopt;
  }

  template <class Condition>
  Completed rulesWhere(Condition condition) const {
    Completed found;
    for (std::size_t i = 0; i < analysis_.rules_.size(); ++i) {
      if (condition(i)) {
        found.push_back(i);
      }
    }
    return found;
  }

  const ReachabilityAnalysis& analysis_;
  const std::size_t rule_;
  std::size_t& effort_;
  Way way_ = Way::noneBelow;
  bool gaveUp_ = false;
};

ReachabilityAnalysis::ReachabilityAnalysis(std::vector<const Rule*> rules, Window window)
    : rules_(std::move(rules)), window_(window) {
  for (const Rule* const rule : rules_) {
    const auto* const value = rule->windowValue(window);
    values_.push_back(value);
    size_ += 1 + (value->fineValue ? value->fineValue->requiredEvents.size() : 0) +
             (value->coarseValue ? value->coarseValue->requiredEvents.size() : 0);
  }
  findEvents();
  findInconsistency();
}

void ReachabilityAnalysis::findEvents() {
  struct Bounds {
    std::set<double> min;
    std::set<double> max;
  };
  std::map<std::string_view, Bounds> bounds;
  for (const auto* const value : values_) {
    for (const Requirements* const way : waysToComplete(*value)) {
      for (const Requirement& event : *way) {
        names_.insert(event.name);
        if (hasRange(event)) {
          bounds[event.name].min.insert(*event.revenueMin);
          bounds[event.name].max.insert(*event.revenueMax);
        }
      }
    }
  }
  while (names_.contains(otherEvent_)) {
    otherEvent_ += '!';
  }
  for (const auto& [name, ofName] : bounds) {
    std::vector<double>& revenues = revenues_[std::string(name)];
    std::set<double> all = ofName.min;
    all.insert(ofName.max.begin(), ofName.max.end());
    for (auto bound = all.begin(); bound != all.end(); ++bound) {
      const auto next = std::next(bound);
      const auto inner = next == all.end() ? std::nullopt : between(*bound, *next);
      if (inner) {
        revenues.push_back(*inner);
      }
      // Where ranges only begin, the bound is of the class above it; where they only end, of the one below.
      const bool isOfClassAbove = inner && !ofName.max.contains(*bound);
      const bool isOfClassBelow =
          !ofName.min.contains(*bound) && bound != all.begin() && between(*std::prev(bound), *bound);
      if (!isOfClassAbove && !isOfClassBelow) {
        revenues.push_back(*bound);
      }
    }
  }
}

std::vector<SampleEvent> ReachabilityAnalysis::events() const {
  std::vector<SampleEvent> events{{otherEvent_, std::nullopt}};
  for (const std::string& name : names_) {
    events.push_back({name, std::nullopt});
    if (const auto found = revenues_.find(name); found != revenues_.end()) {
      for (const double revenue : found->second) {
        events.push_back({name, revenue});
      }
    }
  }
  return events;
}

void ReachabilityAnalysis::findInconsistency() {
  std::vector<const Rule*> withoutFine;  // one of each rank
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    const auto ranksTheSame = [&](const Rule* other) { return rules_[i]->compareWindowValue(*other, window_) == 0; };
    if (!values_[i]->fineValue && std::none_of(withoutFine.begin(), withoutFine.end(), ranksTheSame)) {
      withoutFine.push_back(rules_[i]);
    }
  }
  for (const Rule* const third : withoutFine) {
    const Rule* lower = nullptr;
    const Rule* higher = nullptr;
    const auto fine = [this](const Rule* rule) { return rule->windowValue(window_)->fineValue->value; };
    for (std::size_t i = 0; i < rules_.size(); ++i) {
      if (!values_[i]->fineValue) {
        continue;
      }
      const int order = rules_[i]->compareWindowValue(*third, window_);
      if (order >= 0 && (lower == nullptr || fine(rules_[i]) < fine(lower))) {
        lower = rules_[i];
      }
      if (order <= 0 && (higher == nullptr || fine(rules_[i]) > fine(higher))) {
        higher = rules_[i];
      }
    }
    if (lower != nullptr && higher != nullptr && fine(lower) < fine(higher)) {
      inconsistency_ = {lower, higher, third};
      return;
    }
  }
}

std::vector<std::size_t> ReachabilityAnalysis::completedBy(const RevenuesByName& history) const {
  std::vector<std::size_t> completed;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    if (isComplete(*values_[i], history)) {
      completed.push_back(i);
    }
  }
  return completed;
}

bool ReachabilityAnalysis::isBelow(std::size_t a, std::size_t b) const {
  return rules_[a]->compareWindowValue(*rules_[b], window_) < 0;
}

std::vector<double> ReachabilityAnalysis::revenuesFor(const Requirement& event) const {
  std::vector<double> within;
  const auto& all = revenues_.find(event.name)->second;
  std::copy_if(all.begin(), all.end(), std::back_inserter(within),
               [&event](double revenue) { return *event.revenueMin <= revenue && revenue <= *event.revenueMax; });
  return within;
}

Reachability ReachabilityAnalysis::decide(std::size_t index, Effort& effort) const {
  const auto ways = waysToComplete(*values_[index]);
  if (ways.empty()) {
    return {Reachability::Verdict::neverComplete, {}, nullptr};
  }
  std::size_t share = std::min(effort.left, effort.forOne);
  effort.left -= share;
  Search search(*this, index, share);
  std::optional<History> found = search.find(Search::Way::noneBelow);
  if (!found && inconsistency_) {
    found = search.find(Search::Way::frontOfCircle);
  }
  effort.left += share;
  if (!found && search.gaveUp()) {
    return {};
  }
  if (found) {
    return {Reachability::Verdict::sent, withAnEvent(std::move(found->events)), nullptr};
  }
  // Any history that completes the rule shows that another one is sent.
  History shown;
  for (const Requirement& event : *ways.front()) {
    if (!isMet(event, shown.revenues)) {
      shown.add(event.name, hasRange(event) ? std::optional(revenuesFor(event).front()) : std::nullopt);
    }
  }
  std::vector<const Rule*> completed;
  for (const std::size_t other : completedBy(shown.revenues)) {
    completed.push_back(rules_[other]);
  }
  return {Reachability::Verdict::dead, withAnEvent(std::move(shown.events)), lowestRanked(completed, window_)};
}

/// Without an event nothing is sent, so there is one that no rule names.
std::vector<SampleEvent> ReachabilityAnalysis::withAnEvent(std::vector<SampleEvent> events) const {
  if (events.empty()) {
    events.push_back({otherEvent_, std::nullopt});
  }
  return events;
}

}  // namespace quillmar::insight
