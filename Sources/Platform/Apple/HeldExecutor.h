#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "quillmar/platform/Clock.h"
#include "quillmar/platform/Executor.h"

namespace quillmar::platform {

/// Keeps work back until something is ready, then hands it and all later work on to another executor, in order.
class HeldExecutor : public Executor {
 public:
  static constexpr std::chrono::seconds interval{1};

  /// `isReady` is called on `target`: once work was posted, then every `interval` until it says yes.
  HeldExecutor(std::shared_ptr<Executor> target, std::shared_ptr<Clock> clock, std::function<bool()> isReady);

  void post(std::function<void()> work) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace quillmar::platform
