#pragma once

#include <system_error>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// Why an HTTP exchange gave no response. On Apple systems: `NSURLErrorDomain`.
enum class URLError {
  unknown = 1,
  cancelled,  ///< by `HttpTransport::cancel`
  badURL,
  unsupportedURL,
  timedOut,
  cannotFindHost,
  cannotConnectToHost,
  networkConnectionLost,
  notConnectedToInternet,
  secureConnectionFailed,
  httpTooManyRedirects,
  redirectToInsecureLocation,
  badServerResponse,
  dataLengthExceedsMaximum,
  cannotConnectToProxy,
  proxyAuthenticationRequired,  ///< the proxy wants a user and a password, or other ones
  proxyRefusedConnection,       ///< the proxy does not let us through to the host, or cannot reach it
};

/// The category of `URLError`; its message is a sentence, its case name the enumerator's.
QUILLMAR_API const std::error_category& urlErrorCategory() noexcept;

/// What the constructor of `std::error_code` calls.
QUILLMAR_API std::error_code make_error_code(URLError error) noexcept;

}  // namespace quillmar::platform

template <>
struct std::is_error_code_enum<quillmar::platform::URLError> : std::true_type {};
