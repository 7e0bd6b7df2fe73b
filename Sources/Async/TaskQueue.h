#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "Async/ActivityCounter.h"
#include "Async/SerialExecutor.h"
#include "Async/Task.h"

namespace quillmar {

/// A serial queue whose items start tasks. The tasks are started in the order of posting and run interleaved, but no
/// more than `limit` at a time: what waits costs a function object, not a coroutine and a request.
class TaskQueue : public std::enable_shared_from_this<TaskQueue> {
 public:
  using MakeTask = std::function<Task<void>()>;

  TaskQueue(std::shared_ptr<SerialExecutor> serial, std::size_t limit, std::shared_ptr<ActivityCounter> activity);

  /// Called from any thread. The item counts as in flight until its task has ended.
  void post(MakeTask makeTask);

  /// The same while fewer than `most` items wait; several threads at once may exceed that by one each. Gives the item
  /// that has no place, the oldest of those that wait or the new one.
  MakeTask postWithin(std::size_t most, bool dropsOldest, MakeTask makeTask);

 private:
  class Slot;

  void postPump();
  void pump();
  void release() noexcept;
  /// Under the mutex.
  bool someWait();
  static Task<void> run(Slot slot, MakeTask makeTask);

  const std::shared_ptr<SerialExecutor> serial_;
  const std::size_t limit_;
  const std::shared_ptr<ActivityCounter> activity_;
  std::mutex incomingMutex_;  ///< short and rarely taken by the queue itself: callers may be on a main thread
  std::deque<MakeTask> incoming_;
  std::mutex mutex_;
  std::deque<MakeTask> waiting_;  ///< what came before `incoming_`
  std::size_t running_ = 0;
  bool pumping_ = false;
};

}  // namespace quillmar
