#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "quillmar/ConversionValues.h"

namespace quillmar {

struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const noexcept { return std::hash<std::string_view>{}(name); }
};

/// What counts of a history of events: the distinct revenues of the events of each name.
using RevenuesByName = std::unordered_map<std::string, std::set<double>, NameHash, std::equal_to<>>;

/// True when that is news to the history: the name, or this revenue under it.
bool addEvent(RevenuesByName& history, const std::string& name, std::optional<double> revenue);

/// What a single revenue bound of a required event says.
enum class SingleBound : std::uint8_t { ignored, honoured };

/// An event of that name was tracked; if there are both bounds, one with a revenue within them. A single bound is
/// deliberately ignored, unless something else is said.
bool isMet(const ConversionValues::RequiredEvent& event, const RevenuesByName& history,
           SingleBound single = SingleBound::ignored);

/// The first of the required events that is not met, or the end.
std::vector<ConversionValues::RequiredEvent>::const_iterator firstUnmet(
    const std::vector<ConversionValues::RequiredEvent>& events, const RevenuesByName& history,
    SingleBound single = SingleBound::ignored);

/// One half has all its required events.
bool isComplete(const ConversionValues::WindowValue& value, const RevenuesByName& history);

/// The value with those of its halves that have all their required events.
ConversionValues::WindowValue completeHalves(const ConversionValues::WindowValue& value, const RevenuesByName& history,
                                             SingleBound single);

/// Rules of a configuration, in its order.
using Rules = std::vector<const ConversionValues::ConversionValue*>;

/// The rules that are complete in a window.
Rules completeRules(const ConversionValues& values, Window window, const RevenuesByName& history);

}  // namespace quillmar
