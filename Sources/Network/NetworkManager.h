#pragma once

#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "Network/NetworkGate.h"
#include "Network/NetworkManagerProtocol.h"

namespace quillmar {

enum class NetworkManagerError {
  invalidRequest = 1,    ///< HTTP 400...499
  serverError,           ///< HTTP 500...599
  unexpectedStatusCode,  ///< any other status that is no success
};

std::error_code make_error_code(NetworkManagerError error) noexcept;

/// A status that is no success; its code is a `NetworkManagerError`.
class HttpStatusError : public std::system_error {
 public:
  HttpStatusError(NetworkManagerError error, int status, std::string retryAfter)
      : system_error(make_error_code(error)), status_(status), retryAfter_(std::move(retryAfter)) {}

  int status() const noexcept { return status_; }
  /// The header of that name, as it came.
  const std::string& retryAfter() const noexcept { return retryAfter_; }

 private:
  int status_;
  std::string retryAfter_;
};

/// Sends requests through the HTTP seam and tells success from failure by the status.
class NetworkManager final : public NetworkManagerProtocol {
 public:
  explicit NetworkManager(std::shared_ptr<NetworkGate> gate) noexcept;

  Task<NetworkResponse> perform(platform::HttpRequest request) override;

 private:
  const std::shared_ptr<NetworkGate> gate_;
};

/// The way of requests: through `gate`, or the built-in answers while the mock switch is on.
std::shared_ptr<NetworkManagerProtocol> makeNetworkManager(std::shared_ptr<NetworkGate> gate);

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::NetworkManagerError> : std::true_type {};
