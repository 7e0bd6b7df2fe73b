#pragma once

#include <string>

#include "Async/Task.h"
#include "quillmar/platform/HttpTransport.h"

namespace quillmar {

struct NetworkResponse {
  std::string url;
  int statusCode = 0;
  std::string data;
};

/// The way of every request: the network, or a stand-in.
class NetworkManagerProtocol {
 public:
  virtual ~NetworkManagerProtocol() = default;

  /// Performs the request. Throws `std::system_error`: a `NetworkManagerError` for a status that is no success, or
  /// the transport's error. The object must live until the task is done.
  virtual Task<NetworkResponse> perform(platform::HttpRequest request) = 0;
};

}  // namespace quillmar
