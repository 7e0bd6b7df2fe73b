#pragma once

#include <string_view>

#include "Network/NetworkManagerProtocol.h"

namespace quillmar {

/// Answers every request with the same built-in conversion-values document, without a network. A client that expects
/// another document decodes it as far as its type allows: the configuration request fails, event logs have no status.
class MockNetworkManager final : public NetworkManagerProtocol {
 public:
  /// Throws `RequestBuilderError::invalidURL` for a request without a URL.
  Task<NetworkResponse> perform(platform::HttpRequest request) override;

  /// The document.
  static const std::string_view conversionValues;
};

}  // namespace quillmar
