#include "Platform/Posix/CurlHttpTransport.h"

#include <stdexcept>

namespace quillmar::platform {

CurlHttpTransport::CurlHttpTransport(CurlHttpTransportOptions) {}
HttpTransport::RequestId CurlHttpTransport::start(HttpRequest, Completion) {
  throw std::logic_error("not there yet");
}
void CurlHttpTransport::cancel(RequestId) noexcept {}

}  // namespace quillmar::platform
