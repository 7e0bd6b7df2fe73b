#include "Network/NetworkManager.h"

#include <utility>

#include "Logging/Log.h"
#include "Network/MockNetworkManager.h"
#include "Platform/ErrorCategory.h"
#include "Settings/MockSwitch.h"
#include "quillmar/platform/URLError.h"

namespace quillmar {

std::error_code make_error_code(NetworkManagerError error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("NetworkManagerError", {{"invalidRequest", "The service refused the request."},
                                                {"serverError", "The service failed."},
                                                {"unexpectedStatusCode", "The service gave an unexpected answer."}});
  return {static_cast<int>(error), category};
}

NetworkManager::NetworkManager(std::shared_ptr<NetworkGate> gate) noexcept : gate_(std::move(gate)) {}

Task<NetworkResponse> NetworkManager::perform(platform::HttpRequest request) {
  Log::debug("NetworkManager - Starting network request to URL: {}",
             request.url.empty() ? std::string_view("Unknown URL") : std::string_view(request.url));
  std::function<void(std::function<void(platform::HttpResult)>)> start =
      [gate = gate_, request = std::move(request)](std::function<void(platform::HttpResult)> done) mutable {
        gate->start(std::move(request), std::move(done));
      };
  platform::HttpResult result = co_await awaitCallback<platform::HttpResult>(std::move(start));
  if (result.error) {
    throw std::system_error(result.error);
  }
  if (!result.statusCode) {
    Log::error("NetworkManager - Failed to get HTTPURLResponse");
    throw std::system_error(platform::URLError::badServerResponse);
  }
  const int status = *result.statusCode;
  Log::debug("NetworkManager - Received response with status code: {}", status);
  if (status >= 200 && status <= 299) {
    Log::debug("NetworkManager - Request sent successfully.");
    co_return NetworkResponse{std::move(result.url), status, std::move(result.body)};
  }
  if (status >= 400 && status <= 499) {
    Log::error("NetworkManager - Client error: {}", status);
    throw HttpStatusError(NetworkManagerError::invalidRequest, status, std::move(result.retryAfter));
  }
  if (status >= 500 && status <= 599) {
    Log::error("NetworkManager - Server error: {}", status);
    throw HttpStatusError(NetworkManagerError::serverError, status, std::move(result.retryAfter));
  }
  Log::error("NetworkManager - Unexpected status code: {}", status);
  throw HttpStatusError(NetworkManagerError::unexpectedStatusCode, status, std::move(result.retryAfter));
}

std::shared_ptr<NetworkManagerProtocol> makeNetworkManager(std::shared_ptr<NetworkGate> gate) {
  if (MockSwitch::isOn()) {
    return std::make_shared<MockNetworkManager>();
  }
  return std::make_shared<NetworkManager>(std::move(gate));
}

}  // namespace quillmar
