#include "Facade/TrackingQueue.h"

#include <exception>
#include <utility>

#include "Logging/Logger.h"

namespace quillmar {

TrackingQueue::TrackingQueue(std::shared_ptr<EventTracker> eventTracker,
                             std::shared_ptr<platform::Executor> executor) noexcept
    : eventTracker_(std::move(eventTracker)), executor_(std::move(executor)) {}

Task<void> TrackingQueue::track(std::string name, std::optional<NamedParameters> parameters) {
  return trackTask(shared_from_this(), {std::move(name), std::move(parameters)});
}

Task<void> TrackingQueue::trackTask(std::shared_ptr<TrackingQueue> self, EventTracker::NewEvent event) {
  std::function<void(std::function<void(bool)>)> start = [self, event](std::function<void(bool)> done) mutable {
    self->add(std::move(event), std::move(done));
  };
  self.reset();
  co_await awaitCallback<bool>(std::move(start));
}

void TrackingQueue::add(EventTracker::NewEvent event, std::function<void(bool)> done) {
  const std::lock_guard lock(mutex_);
  done_.reserve(done_.size() + 1);
  waiting_.push_back(std::move(event));
  done_.push_back(std::move(done));
  if (waiting_.size() > 1) {
    return;
  }
  try {
    executor_->post([self = shared_from_this()] { self->trackWaiting(); });
  } catch (...) {  // out of memory: this event is dropped, the next one posts again
    waiting_.clear();
    done_.clear();
    throw;
  }
}

void TrackingQueue::trackWaiting() {
  std::vector<EventTracker::NewEvent> events;
  std::vector<std::function<void(bool)>> done;
  {
    const std::lock_guard lock(mutex_);
    events.swap(waiting_);
    done.swap(done_);
  }
  try {
    eventTracker_->trackEvents(events);
  } catch (const std::exception& error) {  // out of memory; the events go on, like those that the store refuses
    Logger::error("EventTracker - Failed to store event: {}", error.what());
  }
  for (const std::function<void(bool)>& resume : done) {
    resume(true);
  }
}

}  // namespace quillmar
