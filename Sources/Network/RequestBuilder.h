#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "Network/BodyContainers.h"
#include "quillmar/Config.h"
#include "quillmar/platform/HttpTransport.h"

namespace quillmar {

enum class RequestBuilderError {
  invalidURL = 1,  ///< the base URL and the path give no URL
};

std::error_code make_error_code(RequestBuilderError error) noexcept;

/// Builds one request to the event service. Each configuring operation returns the builder, so that calls chain.
class RequestBuilder {
 public:
  enum class Method : std::uint8_t { GET, PATCH, POST, PUT, DELETE };

  explicit RequestBuilder(std::map<std::string, std::string> defaultHeaders = {},
                          std::string baseUrl = std::string(Config::urlString));

  // The path has no leading "/"; one that has gives two in a row.
  RequestBuilder& get(std::string path) { return with(Method::GET, std::move(path)); }
  RequestBuilder& patch(std::string path) { return with(Method::PATCH, std::move(path)); }
  RequestBuilder& post(std::string path) { return with(Method::POST, std::move(path)); }
  RequestBuilder& put(std::string path) { return with(Method::PUT, std::move(path)); }
  RequestBuilder& delete_(std::string path) { return with(Method::DELETE, std::move(path)); }

  /// Merges headers; on a name that is there already the new value wins.
  RequestBuilder& headers(const std::map<std::string, std::string>& headers);

  RequestBuilder& body(std::shared_ptr<const RequestBodyContainerProtocol> container);

  template <class Encodable>
  RequestBuilder& json(Encodable value) {
    return body(std::make_shared<JSONBodyContainer<Encodable>>(std::move(value)));
  }

  RequestBuilder& timeoutInterval(std::chrono::duration<double> timeout);
  RequestBuilder& cachePolicy(platform::CachePolicy policy);

  /// Throws `RequestBuilderError::invalidURL`, or the body's encoding error.
  platform::HttpRequest build() const;

 private:
  RequestBuilder& with(Method method, std::string path);

  Method method_ = Method::GET;
  std::string path_;
  std::shared_ptr<const RequestBodyContainerProtocol> bodyContainer_;
  std::map<std::string, std::string> headers_;
  std::chrono::duration<double> timeoutInterval_{60.0};
  platform::CachePolicy cachePolicy_ = platform::CachePolicy::useProtocolCachePolicy;
  std::map<std::string, std::string> defaultHeaders_;
  std::string baseUrl_;
};

/// The method's token: "GET", "PATCH", "POST", "PUT", "DELETE".
std::string_view rawValue(RequestBuilder::Method method) noexcept;

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::RequestBuilderError> : std::true_type {};
