#include "Network/BaseApiClient.h"

#include <utility>

namespace quillmar {

BaseApiClient::BaseApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                             std::string quillmarVerificationKey, std::string baseUrl)
    : networkManager_(std::move(networkManager)),
      quillmarVerificationKey_(std::move(quillmarVerificationKey)),
      baseUrl_(std::move(baseUrl)) {}

RequestBuilder BaseApiClient::createRequestBuilder() const {
  return RequestBuilder({{"Authorization", quillmarVerificationKey_}}, baseUrl_);
}

}  // namespace quillmar
