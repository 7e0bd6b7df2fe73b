#include "Async/TaskExecutor.h"

namespace quillmar {

boost::asio::execution_context& TaskExecutor::context() noexcept {
  static auto* const context = new boost::asio::execution_context;  // never destroyed: exit must not race with it
  return *context;
}

}  // namespace quillmar
