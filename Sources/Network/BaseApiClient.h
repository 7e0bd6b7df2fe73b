#pragma once

#include <memory>
#include <string>

#include "Network/NetworkManagerProtocol.h"
#include "Network/RequestBuilder.h"

namespace quillmar {

/// What the clients of the event service share: the transport, the key, the address, and who asks. Clients never catch.
class BaseApiClient {
 public:
  /// An empty `userAgent` is not sent.
  BaseApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager, std::string quillmarVerificationKey,
                std::string baseUrl = std::string(Config::urlString), std::string userAgent = {});

 protected:
  ~BaseApiClient() = default;

  /// A builder whose requests carry the key, as it is, in "Authorization".
  RequestBuilder createRequestBuilder() const;

  const std::shared_ptr<NetworkManagerProtocol>& networkManager() const noexcept { return networkManager_; }

 private:
  const std::shared_ptr<NetworkManagerProtocol> networkManager_;
  const std::string quillmarVerificationKey_;
  const std::string baseUrl_;
  const std::string userAgent_;
};

}  // namespace quillmar
