#pragma once

#include <boost/asio/execution.hpp>
#include <boost/asio/execution_context.hpp>
#include <memory>
#include <utility>

#include "quillmar/platform/Executor.h"

namespace quillmar {

/// Lets Asio's coroutines run on the executor seam. A small value, copied freely; it keeps the seam alive.
class TaskExecutor {
 public:
  explicit TaskExecutor(std::shared_ptr<platform::Executor> seam) noexcept : seam_(std::move(seam)) {}

  /// Work that cannot be posted because memory is short is dropped: destroyed here, as by an executor that shuts
  /// down. It must not throw, since Asio posts from destructors.
  template <class Work>
  void execute(Work&& work) const noexcept {
    try {
      // Asio's work items can only be moved, a std::function must be copyable.
      auto shared = std::make_shared<std::decay_t<Work>>(std::forward<Work>(work));
      seam_->post([shared]() mutable {
        try {
          // Moved out first: what the work owns is gone before the item is.
          std::decay_t<Work> local(std::move(*shared));
          shared.reset();
          local();
        } catch (...) {
          reportLostWork();
        }
      });
    } catch (...) {
      reportLostWork();
    }
  }

  static constexpr boost::asio::execution::blocking_t::never_t query(boost::asio::execution::blocking_t) noexcept {
    return boost::asio::execution::blocking.never;
  }
  boost::asio::execution_context& query(boost::asio::execution::context_t) const noexcept { return context(); }
  TaskExecutor require(boost::asio::execution::blocking_t::never_t) const noexcept { return *this; }

  const std::shared_ptr<platform::Executor>& seam() const noexcept { return seam_; }

  friend bool operator==(const TaskExecutor& a, const TaskExecutor& b) noexcept { return a.seam_ == b.seam_; }
  friend bool operator!=(const TaskExecutor& a, const TaskExecutor& b) noexcept { return !(a == b); }

 private:
  /// Asio wants an execution context for its services. The library uses none of them, so one that is never destroyed
  /// serves all.
  static boost::asio::execution_context& context() noexcept;
  /// Memory was too short for the task even to end in order. It is gone; the executor goes on.
  static void reportLostWork() noexcept;

  std::shared_ptr<platform::Executor> seam_;
};

}  // namespace quillmar
