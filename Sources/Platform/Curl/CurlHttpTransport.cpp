#include "Platform/Curl/CurlHttpTransport.h"

#include <utility>

#include "Platform/Curl/CurlEngine.h"
#include "Platform/Curl/CurlProcess.h"
#include "Platform/OwnProcess.h"

namespace quillmar::platform {

CurlHttpTransport::CurlHttpTransport(CurlHttpTransportOptions options)
    : engine_(std::make_shared<CurlEngine>(std::move(options))) {}

CurlHttpTransport::~CurlHttpTransport() {
  engine_->stop();
  if (CurlProcess::instance().isExiting()) {
    OwnProcess::abandon(std::move(engine_));  // to clean up is to use TLS
  }
}

HttpTransport::RequestId CurlHttpTransport::start(HttpRequest request, Completion completion) {
  return engine_->start(std::move(request), std::move(completion));
}

void CurlHttpTransport::cancel(RequestId request) noexcept {
  engine_->cancel(request);
}

}  // namespace quillmar::platform
