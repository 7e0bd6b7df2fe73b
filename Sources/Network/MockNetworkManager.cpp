#include "Network/MockNetworkManager.h"

#include <utility>

#include "Network/RequestBuilder.h"

namespace quillmar {

const std::string_view MockNetworkManager::conversionValues = R"({
  "values": [
    {
      "key": "Session",
      "windows": {
        "window2": {
          "coarseValue": {
            "value": "low",
            "requiredEvents": [
              {
                "name": "session",
                "revenueMin": null,
                "revenueMax": null
              }
            ]
          }
        }
      }
    },
    {
      "key": "Purchase",
      "windows": {
        "window1": {
          "fineValue": {
            "value": 63,
            "requiredEvents": [
              {
                "name": "subscription",
                "revenueMin": null,
                "revenueMax": null
              }
            ]
          },
          "coarseValue": {
            "value": "high",
            "requiredEvents": [
              {
                "name": "subscription",
                "revenueMin": null,
                "revenueMax": null
              }
            ]
          }
        }
      }
    }
  ],
  "lockWindows": {
    "window1": {
      "type": "high"
    },
    "window2": {
      "type": "time",
      "value": 168
    }
  }
})";

Task<NetworkResponse> MockNetworkManager::perform(platform::HttpRequest request) {
  // A plain suspension point: callers see the same asynchrony as with the network.
  std::function<void(std::function<void()>)> hop = [](const std::function<void()>& resume) { resume(); };
  co_await awaitSignal(std::move(hop));
  if (request.url.empty()) {
    throw std::system_error(RequestBuilderError::invalidURL);
  }
  co_return NetworkResponse{std::move(request.url), 200, std::string(conversionValues)};
}

}  // namespace quillmar
