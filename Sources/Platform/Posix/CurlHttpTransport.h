#pragma once

#include <string>

#include "quillmar/platform/HttpTransport.h"

namespace quillmar::platform {

struct CurlHttpTransportOptions {
  std::string caFile;
};

class CurlHttpTransport : public HttpTransport {
 public:
  explicit CurlHttpTransport(CurlHttpTransportOptions options = {});
  RequestId start(HttpRequest request, Completion completion) override;
  void cancel(RequestId request) noexcept override;
};

}  // namespace quillmar::platform
