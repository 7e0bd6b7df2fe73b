#include "quillmar/platform/URLError.h"

#include "Platform/ErrorCategory.h"

namespace quillmar::platform {

const std::error_category& urlErrorCategory() noexcept {
  static const std::error_category& category = makeErrorCategory(
      "URLError", {{"unknown", "An unknown error occurred."},
                   {"cancelled", "The request was cancelled."},
                   {"badURL", "The URL is malformed."},
                   {"unsupportedURL", "The URL's scheme is not supported."},
                   {"timedOut", "The request timed out."},
                   {"cannotFindHost", "A server with the specified hostname could not be found."},
                   {"cannotConnectToHost", "Could not connect to the server."},
                   {"networkConnectionLost", "The network connection was lost."},
                   {"notConnectedToInternet", "There is no network connection."},
                   {"secureConnectionFailed", "A secure connection could not be made."},
                   {"httpTooManyRedirects", "There were too many redirects."},
                   {"redirectToInsecureLocation", "The server redirected to an insecure or unsupported location."},
                   {"badServerResponse", "The server's response is not valid."},
                   {"dataLengthExceedsMaximum", "The response is larger than the limit."},
                   {"cannotConnectToProxy", "Could not connect to the proxy."},
                   {"proxyAuthenticationRequired", "The proxy wants a user and a password, or other ones."},
                   {"proxyRefusedConnection", "The proxy refused the connection to the server."}});
  return category;
}

std::error_code make_error_code(URLError error) noexcept {
  return {static_cast<int>(error), urlErrorCategory()};
}

}  // namespace quillmar::platform
