#include "Network/BaseApiClient.h"

#include <utility>

namespace quillmar {

BaseApiClient::BaseApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                             std::string quillmarVerificationKey, std::string baseUrl, std::string userAgent)
    : networkManager_(std::move(networkManager)),
      quillmarVerificationKey_(std::move(quillmarVerificationKey)),
      baseUrl_(std::move(baseUrl)),
      userAgent_(std::move(userAgent)) {}

RequestBuilder BaseApiClient::createRequestBuilder() const {
  RequestBuilder builder({{"Authorization", quillmarVerificationKey_}}, baseUrl_);
  if (!userAgent_.empty()) {
    builder.headers({{"User-Agent", userAgent_}});
  }
  return builder;
}

}  // namespace quillmar
