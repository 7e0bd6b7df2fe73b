#pragma once

#include <memory>
#include <string>

#include "Async/ActivityCounter.h"
#include "quillmar/Decision.h"
#include "quillmar/platform/Executor.h"

namespace quillmar {

/// The record of one event, which goes its way with it, in a shared pointer that is null when nobody observes. The
/// observer gets the record, on the given queue, when the last who works on the event lets go of it. An event of which
/// nobody has said how it ended was overtaken by a reset or the end of its instance; it leaves no record.
class DecisionTrace {
 public:
  /// `activity` counts until the observer has the record.
  DecisionTrace(std::string event, std::shared_ptr<const DecisionObserver> observer,
                std::shared_ptr<platform::Executor> queue, Activity activity) noexcept;
  ~DecisionTrace();
  DecisionTrace(const DecisionTrace&) = delete;
  DecisionTrace& operator=(const DecisionTrace&) = delete;

  /// Says how the event ended; the last word counts.
  void end(Decision::Outcome outcome) noexcept;

  /// What is known so far. One task works on an event at a time, so there is no lock.
  Decision record;

 private:
  std::shared_ptr<const DecisionObserver> observer_;
  std::shared_ptr<platform::Executor> queue_;
  Activity activity_;
  bool hasEnded_ = false;
};

}  // namespace quillmar
