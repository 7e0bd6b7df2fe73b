#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Async/Epoch.h"
#include "Async/Task.h"
#include "Conversion/EventTracker.h"
#include "quillmar/platform/Executor.h"

namespace quillmar {

/// Tracks events for tasks that share an executor. Events that come in one go of the executor are stored together: a
/// durable write costs more than everything else that happens to an event.
class TrackingQueue : public std::enable_shared_from_this<TrackingQueue> {
 public:
  TrackingQueue(std::shared_ptr<EventTracker> eventTracker, std::shared_ptr<platform::Executor> executor,
                std::shared_ptr<Epoch> epoch) noexcept;

  /// The task goes on when the event is in the history, could not be put there, or was overtaken by a reset.
  Task<void> track(std::string name, std::optional<NamedParameters> parameters, std::uint64_t begun);

 private:
  struct Waiting {
    EventTracker::NewEvent event;
    std::uint64_t begun;
    std::function<void()> done;
  };

  static Task<void> trackTask(std::shared_ptr<TrackingQueue> self, EventTracker::NewEvent event, std::uint64_t begun);
  void add(Waiting waiting);
  void trackWaiting();

  const std::shared_ptr<EventTracker> eventTracker_;
  const std::shared_ptr<platform::Executor> executor_;
  const std::shared_ptr<Epoch> epoch_;
  std::mutex mutex_;
  std::vector<Waiting> waiting_;
};

}  // namespace quillmar
