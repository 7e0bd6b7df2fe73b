#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Network/RequestBuilder.h"

namespace quillmar {

/// Builds one request to the attribution service. It is a `RequestBuilder` with another address that knows no method
/// but POST.
class AppleRequestBuilder {
 public:
  explicit AppleRequestBuilder(std::map<std::string, std::string> defaultHeaders = {},
                               std::string baseUrl = std::string(Config::attributionUrlString))
      : builder_(std::move(defaultHeaders), std::move(baseUrl)) {
    builder_.post("");
  }

  AppleRequestBuilder& post(std::string path) {
    builder_.post(std::move(path));
    return *this;
  }
  AppleRequestBuilder& headers(const std::map<std::string, std::string>& headers) {
    builder_.headers(headers);
    return *this;
  }
  AppleRequestBuilder& body(std::shared_ptr<const RequestBodyContainerProtocol> container) {
    builder_.body(std::move(container));
    return *this;
  }
  template <class Encodable>
  AppleRequestBuilder& json(Encodable value) {
    builder_.json(std::move(value));
    return *this;
  }
  AppleRequestBuilder& timeoutInterval(std::chrono::duration<double> timeout) {
    builder_.timeoutInterval(timeout);
    return *this;
  }
  AppleRequestBuilder& cachePolicy(platform::CachePolicy policy) {
    builder_.cachePolicy(policy);
    return *this;
  }

  /// Throws `RequestBuilderError::invalidURL`, or the body's encoding error.
  platform::HttpRequest build() const { return builder_.build(); }

 private:
  RequestBuilder builder_;
};

}  // namespace quillmar
