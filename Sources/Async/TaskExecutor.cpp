#include "Async/TaskExecutor.h"

#include "Logging/Log.h"

namespace quillmar {

boost::asio::execution_context& TaskExecutor::context() noexcept {
  static auto* const context = new boost::asio::execution_context;  // never destroyed: exit must not race with it
  return *context;
}

void TaskExecutor::reportLostWork() noexcept {
  Log::error("Task - Ended by an unexpected error");
}

}  // namespace quillmar
