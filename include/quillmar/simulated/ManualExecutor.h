#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "quillmar/platform/Executor.h"

namespace quillmar::simulated {

/// An executor that is cranked by hand: nothing runs until it is told to, and then in the order of posting.
class ManualExecutor : public platform::Executor {
 public:
  ~ManualExecutor() override;

  void post(std::function<void()> work) override;

  /// Runs what is posted, and what that posts, until nothing is left, on the calling thread. Returns how many items.
  std::size_t runUntilIdle();

  /// Runs the next item, if any.
  bool runOne();

  /// Drops what is posted, now and from now on.
  void shutDown() noexcept;

 private:
  std::mutex mutex_;
  std::deque<std::function<void()>> work_;
  bool isShutDown_ = false;
};

}  // namespace quillmar::simulated
