#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "service/ServiceExchange.h"

namespace quillmar::service {

struct ServiceOptions {
  /// A configuration response, or only its "values" and "lockWindows". Nothing: a small shop's.
  std::optional<std::string> configuration = {};
  std::string configurationName = "configuration";  ///< the file that it is from, for error texts
  std::optional<std::string> acceptedKey = {};  ///< the only key that is accepted; nothing: every key but an empty one
  std::optional<int> forcedStatus = {};         ///< the status of every answer, whatever the request
  std::optional<int> attributionStatus = {};    ///< of every answer to an attribution token; nothing: by the token
  std::size_t failFirst = 0;                    ///< so many requests are answered with 503 before anything else
  std::chrono::milliseconds delay{0};           ///< how long each answer is held back
};

/// Answers like the event service, and like the one that exchanges attribution tokens, for people who integrate the
/// library. It checks what it is sent more strictly than a service would and keeps nothing: it is a tool for
/// development, not for production. To be used by one thread.
class ServiceLogic {
 public:
  /// Throws `std::invalid_argument`, naming the file and the place in it, when the configuration is not valid.
  explicit ServiceLogic(const ServiceOptions& options = {});

  ServiceAnswer handle(const ServiceRequest& request);

 private:
  ServiceAnswer route(const ServiceRequest& request) const;

  std::string configResponse_;
  std::string conversionValues_;
  std::optional<std::string> acceptedKey_;
  std::optional<int> forcedStatus_;
  std::optional<int> attributionStatus_;
  std::size_t failuresLeft_;
  std::chrono::milliseconds delay_;
};

}  // namespace quillmar::service
