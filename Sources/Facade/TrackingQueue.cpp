#include "Facade/TrackingQueue.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"

namespace quillmar {

TrackingQueue::TrackingQueue(std::shared_ptr<EventTracker> eventTracker, std::shared_ptr<platform::Executor> executor,
                             std::shared_ptr<Epoch> epoch) noexcept
    : eventTracker_(std::move(eventTracker)), executor_(std::move(executor)), epoch_(std::move(epoch)) {}

Task<void> TrackingQueue::track(std::string name, std::optional<NamedParameters> parameters, std::uint64_t begun) {
  return trackTask(shared_from_this(), {std::move(name), std::move(parameters)}, begun);
}

Task<void> TrackingQueue::trackTask(std::shared_ptr<TrackingQueue> self, EventTracker::NewEvent event,
                                    std::uint64_t begun) {
  std::function<void(std::function<void()>)> start = [self, event, begun](std::function<void()> done) mutable {
    self->add({std::move(event), begun, std::move(done)});
  };
  self.reset();
  co_await awaitSignal(std::move(start));
}

void TrackingQueue::add(Waiting waiting) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(waiting));
  if (waiting_.size() > 1) {
    return;
  }
  try {
    executor_->post([self = shared_from_this()] { self->trackWaiting(); });
  } catch (...) {  // out of memory: this event is dropped, the next one posts again
    waiting_.clear();
    throw;
  }
}

void TrackingQueue::trackWaiting() {
  std::vector<Waiting> waiting;
  {
    const std::lock_guard lock(mutex_);
    waiting.swap(waiting_);
  }
  try {
    const std::uint64_t epoch = epoch_->current();
    std::vector<EventTracker::NewEvent> events;
    events.reserve(waiting.size());
    for (Waiting& entry : waiting) {
      if (entry.begun == epoch) {
        events.push_back(std::move(entry.event));
      }
    }
    epoch_->during(epoch, [&] { eventTracker_->trackEvents(events); });
  } catch (...) {  // out of memory; the events go on, like those that the store refuses
    Log::error("EventTracker - Failed to store event: {}", textualDescription(std::current_exception()));
  }
  for (const Waiting& entry : waiting) {
    entry.done();
  }
}

}  // namespace quillmar
