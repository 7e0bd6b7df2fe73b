#include "CountingTransport.h"

#include <algorithm>
#include <utility>

namespace quillmar::cli {
namespace {

std::string endpoint(const platform::HttpRequest& request) {
  const std::string& url = request.url;
  const std::size_t scheme = url.find("://");
  const std::size_t path = url.find_first_of("/?#", scheme == std::string::npos ? 0 : scheme + 3);
  if (path == std::string::npos || url[path] != '/') {
    return request.method + " /";
  }
  return request.method + " " + url.substr(path, std::min(url.size(), url.find_first_of("?#", path)) - path);
}

}  // namespace

CountingTransport::CountingTransport(std::shared_ptr<platform::HttpTransport> transport)
    : transport_(std::move(transport)) {}

platform::HttpTransport::RequestId CountingTransport::start(platform::HttpRequest request, Completion completion) {
  {
    const std::lock_guard lock(mutex_);
    ++counts_[endpoint(request)];
  }
  return transport_->start(std::move(request), std::move(completion));
}

void CountingTransport::cancel(RequestId request) noexcept {
  transport_->cancel(request);
}

std::map<std::string, std::uint64_t> CountingTransport::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

}  // namespace quillmar::cli
