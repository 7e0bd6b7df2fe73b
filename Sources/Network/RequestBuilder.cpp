#include "Network/RequestBuilder.h"

#include <array>

#include "Network/Url.h"
#include "Platform/ErrorCategory.h"

namespace quillmar {

std::error_code make_error_code(RequestBuilderError error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("RequestBuilderError", {{"invalidURL", "The address of the request is not valid."}});
  return {static_cast<int>(error), category};
}

RequestBuilder::RequestBuilder(std::map<std::string, std::string> defaultHeaders, std::string baseUrl)
    : defaultHeaders_(std::move(defaultHeaders)), baseUrl_(std::move(baseUrl)) {}

RequestBuilder& RequestBuilder::with(Method method, std::string path) {
  method_ = method;
  path_ = std::move(path);
  return *this;
}

RequestBuilder& RequestBuilder::headers(const std::map<std::string, std::string>& headers) {
  for (const auto& [name, value] : headers) {
    headers_.insert_or_assign(name, value);
  }
  return *this;
}

RequestBuilder& RequestBuilder::body(std::shared_ptr<const RequestBodyContainerProtocol> container) {
  bodyContainer_ = std::move(container);
  return *this;
}

RequestBuilder& RequestBuilder::timeoutInterval(std::chrono::duration<double> timeout) {
  timeoutInterval_ = timeout;
  return *this;
}

RequestBuilder& RequestBuilder::cachePolicy(platform::CachePolicy policy) {
  cachePolicy_ = policy;
  return *this;
}

platform::HttpRequest RequestBuilder::build() const {
  platform::HttpRequest request;
  request.url = baseUrl_;
  if (!path_.empty()) {
    request.url += '/';
    request.url += path_;
  }
  if (!isUrl(request.url)) {
    throw std::system_error(RequestBuilderError::invalidURL);
  }
  request.cachePolicy = cachePolicy_;
  request.timeout = timeoutInterval_;
  request.method = rawValue(method_);
  for (const auto* entries : {&defaultHeaders_, &headers_}) {
    for (const auto& [name, value] : *entries) {
      setHeader(request, name, value);
    }
  }
  if (bodyContainer_) {
    bodyContainer_->add(request);  // last, so that its headers win
  }
  return request;
}

std::string_view rawValue(RequestBuilder::Method method) noexcept {
  static constexpr std::array<std::string_view, 5> tokens{"GET", "PATCH", "POST", "PUT", "DELETE"};
  return tokens[static_cast<std::size_t>(method)];
}

}  // namespace quillmar
