#pragma once

#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <functional>
#include <memory>

#include "quillmar/platform/Executor.h"

namespace quillmar::platform {

/// Threads over an Asio context. They are started by the first use and sleep while there is nothing to do.
class ThreadPoolExecutor : public Executor {
 public:
  explicit ThreadPoolExecutor(std::size_t threads);

  /// Waits for the work that is running and drops the rest. May run on one of the pool's own threads, which then ends
  /// by itself.
  ~ThreadPoolExecutor() override;

  ThreadPoolExecutor(const ThreadPoolExecutor&) = delete;
  ThreadPoolExecutor& operator=(const ThreadPoolExecutor&) = delete;

  void post(std::function<void()> work) override;

  /// The context that the threads run, for timers. Starts the threads.
  boost::asio::io_context& context();

 private:
  struct State;
  std::shared_ptr<State> state_;  ///< shared with the threads: one of them may outlive this object
};

}  // namespace quillmar::platform
