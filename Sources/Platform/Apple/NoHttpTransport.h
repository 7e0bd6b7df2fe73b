#pragma once

#include <memory>

#include "quillmar/platform/Executor.h"
#include "quillmar/platform/HttpTransport.h"

namespace quillmar::platform {

/// In place of a transport that nobody has registered: each request fails, with an error that says so.
class NoHttpTransport : public HttpTransport {
 public:
  explicit NoHttpTransport(std::shared_ptr<Executor> executor) noexcept;

  RequestId start(HttpRequest request, Completion completion) override;
  void cancel(RequestId) noexcept override {}

 private:
  const std::shared_ptr<Executor> executor_;
};

}  // namespace quillmar::platform
