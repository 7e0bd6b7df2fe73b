#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <system_error>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// How a cache between the library and the service may be used. On Apple systems: `NSURLRequestCachePolicy`.
enum class CachePolicy : std::uint8_t {
  useProtocolCachePolicy = 0,  ///< what the protocol says; an adapter without a cache always loads
  reloadIgnoringLocalCacheData = 1,
};

/// What is asked, and how.
struct HttpRequest {
  std::string url;  ///< absolute; empty means that the request has no URL
  std::string method = "GET";
  std::map<std::string, std::string> headers;
  std::string body;
  std::chrono::duration<double> timeout{60.0};  ///< idle time-out: the longest wait for the next byte
  CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy;
};

/// The end of an exchange: either an error, or a response. An error counts, whatever else is set.
struct HttpResult {
  std::error_code error;  ///< set when there is no response, usually a `URLError`
  std::string url;        ///< where the response came from, after redirects
  /// The HTTP status. Nothing when the response did not come over HTTP.
  std::optional<int> statusCode;
  std::string body;
  std::string retryAfter = {};  ///< the response's header "Retry-After" as it came; empty when there is none
};

/// Performs HTTP exchanges. On Apple systems: the shared URL session.
///
/// An adapter verifies TLS certificates, follows redirects without ever going from HTTPS to HTTP or handing
/// "Authorization" to another host, caps the size of a body while it arrives, and keeps the number of connections
/// small whatever the number of requests.
class QUILLMAR_API HttpTransport {
 public:
  using Completion = std::function<void(HttpResult)>;
  using RequestId = std::uint64_t;

  virtual ~HttpTransport() = default;

  /// Starts an exchange and returns at once. `completion` is called exactly once, on any thread, never inside this
  /// call; after `cancel`, with `URLError::cancelled`. A transport that is destroyed destroys the completions that
  /// it has not called.
  virtual RequestId start(HttpRequest request, Completion completion) = 0;

  /// Ends the exchange early. Without effect when it is over or the identifier is unknown.
  virtual void cancel(RequestId request) noexcept = 0;
};

}  // namespace quillmar::platform
