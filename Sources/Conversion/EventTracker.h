#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Conversion/CompletedRules.h"
#include "Conversion/Completion.h"
#include "Conversion/HistoryDigest.h"
#include "Conversion/TrackedEvent.h"
#include "quillmar/ConversionValues.h"
#include "quillmar/Decision.h"
#include "quillmar/EventValue.h"
#include "quillmar/platform/Clock.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Remembers every event that the host reported, across launches, and tells which conversion values they complete.
///
/// Stored is a JSON array of the events, oldest first, as one data value; it grows until it is cleared. An event is
/// appended to the stored text, and an index by name answers the questions, so that neither gets slower with the
/// length of the history. The index is built again when the stored value was changed by somebody else, with the help of
/// a digest of the history's beginning.
///
/// Any thread; each call blocks until the store has answered.
class EventTracker {
 public:
  static constexpr std::string_view completedEventsKey = "com.quillmar.completedEvents";

  /// Reads nothing yet.
  EventTracker(std::shared_ptr<platform::UserDefaults> userDefaults, std::shared_ptr<platform::Clock> clock) noexcept;

  struct NewEvent {
    std::string name;
    std::optional<NamedParameters> parameters;
  };

  /// Appends an event, stamped now. Of the parameters, numbers and texts that are decimal numbers are kept. An event
  /// that JSON cannot express (an infinite number) is not stored, silently; one that the store refuses is logged.
  void trackEvent(std::string_view name, const std::optional<NamedParameters>& parameters);

  /// Appends events in their order, in one write: all are stored, or none.
  void trackEvents(const std::vector<NewEvent>& events);

  /// The same for events that were stamped before, in one step with tails of other values of the store.
  using Tails = std::vector<platform::UserDefaults::DataTail>;
  std::error_code trackEvents(const std::vector<TrackedEvent>& events, Tails alongside);

  /// What is kept of parameters.
  static std::map<std::string, double> numbers(const std::optional<NamedParameters>& parameters);

  /// True when each of the names was tracked at least once.
  bool areEventsCompleted(const std::vector<std::string>& names);

  std::set<std::string> getTrackedEventNames();

  /// The whole history, oldest first, decoded from the store. Throws `std::system_error` when it cannot be read now.
  std::vector<TrackedEvent> getAllTrackedEvents();

  void clearCompletedEvents();

  /// Takes events off the history that were tracked before, in one write: the others stay as they are. Does nothing as
  /// long as the first one is not that old: where the clock was set back since, older ones stay that long, too.
  void forgetBefore(platform::Clock::TimePoint instant);

  /// The values of the configuration whose fine or coarse part in `currentWindow` has all its required events, in the
  /// order of the configuration. They point into `values`. With `rules`, what is complete and what is missing of each
  /// value in the window is added there.
  Rules findCompletedConversionValues(const ConversionValues& values, Window currentWindow,
                                      std::vector<Decision::Rule>* rules = nullptr);

  /// The same for a document that does not change, at a price that does not depend on the number of its rules.
  Rules followCompletedConversionValues(const std::shared_ptr<const ConversionValues>& document, Window currentWindow);

  /// Other ways than the usual one to find what is complete.
  struct Matching {
    bool onlyCompleteHalves = false;
    SingleBound singleBound = SingleBound::ignored;
    std::optional<platform::Clock::TimePoint> since;  ///< only events from then on count

    bool isUsual() const noexcept { return !onlyCompleteHalves && singleBound == SingleBound::ignored && !since; }
  };

  /// The same in such a way: copies of the values, with this window only, and without the halves that do not count.
  std::vector<ConversionValues::ConversionValue> findCompletedConversionValues(const ConversionValues& values,
                                                                               Window currentWindow,
                                                                               const Matching& matching,
                                                                               std::vector<Decision::Rule>* rules);

 private:
  // These are called with the lock held.
  /// What counts of the events from then on; all of them without an instant.
  const RevenuesByName& historySince(std::optional<platform::Clock::TimePoint> since);
  void addToRecent(const TrackedEvent& event);
  std::error_code track(const std::vector<TrackedEvent>& events, Tails alongside);
  std::error_code store(const std::vector<TrackedEvent>& events, Tails alongside);
  /// Reads the history when it is not the one that was read last. When that fails, the index is empty.
  std::error_code updateIndex();
  /// False when that is no history, which counts as an empty one.
  bool readIndex(const std::string& history);

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<platform::Clock> clock_;

  /// One for the process: two trackers over the same store must not append at the same time, since each would cut off
  /// what the other wrote.
  static std::mutex eventsQueue_;

  RevenuesByName index_;
  std::optional<platform::Clock::TimePoint> oldest_;  ///< the time of the first event, when the index was read
  CompletedRules completedRules_;
  HistoryDigest digest_;
  /// The stored value that the index describes; nothing when it has to be read first.
  std::optional<std::uint64_t> indexedRevision_;
  /// The same of the events from an instant on, and that instant.
  RevenuesByName recent_;
  std::optional<std::uint64_t> recentRevision_;
  platform::Clock::TimePoint recentSince_;
  /// How many bytes of the stored text lie before the bracket that ends the array; 0 when there is no event.
  std::size_t appendAt_ = 0;
};

}  // namespace quillmar
