#include "Platform/Apple/NoHttpTransport.h"

#include <utility>

#include "Platform/ErrorCategory.h"

namespace quillmar::platform {

namespace {

std::error_code noTransport() {
  static const std::error_category& category = makeErrorCategory(
      "quillmar.transport", {{"notRegistered", "No HTTP transport is registered with the library's platform."}});
  return {1, category};
}

}  // namespace

NoHttpTransport::NoHttpTransport(std::shared_ptr<Executor> executor) noexcept : executor_(std::move(executor)) {}

HttpTransport::RequestId NoHttpTransport::start(HttpRequest request, Completion completion) {
  HttpResult result;
  result.error = noTransport();
  result.url = std::move(request.url);
  executor_->post([completion = std::move(completion), result = std::move(result)] { completion(result); });
  return 0;
}

}  // namespace quillmar::platform
