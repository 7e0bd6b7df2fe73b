#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Async/Task.h"
#include "Conversion/EventTracker.h"
#include "quillmar/platform/Executor.h"

namespace quillmar {

/// Tracks events for tasks that share an executor. Events that come by in one go of the executor are stored together:
/// a durable write costs more than everything else that happens to an event.
class TrackingQueue : public std::enable_shared_from_this<TrackingQueue> {
 public:
  TrackingQueue(std::shared_ptr<EventTracker> eventTracker, std::shared_ptr<platform::Executor> executor) noexcept;

  /// The task goes on when the event is in the history, or could not be put there.
  Task<void> track(std::string name, std::optional<NamedParameters> parameters);

 private:
  static Task<void> trackTask(std::shared_ptr<TrackingQueue> self, EventTracker::NewEvent event);
  void add(EventTracker::NewEvent event, std::function<void(bool)> done);
  void trackWaiting();

  const std::shared_ptr<EventTracker> eventTracker_;
  const std::shared_ptr<platform::Executor> executor_;
  std::mutex mutex_;
  std::vector<EventTracker::NewEvent> waiting_;
  std::vector<std::function<void(bool)>> done_;  ///< one for each that waits
};

}  // namespace quillmar
