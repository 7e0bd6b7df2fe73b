#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace quillmar::service {

/// Header names do not depend on the case.
struct HeaderNameLess {
  bool operator()(const std::string& a, const std::string& b) const noexcept;
};

using Headers = std::map<std::string, std::string, HeaderNameLess>;

struct ServiceRequest {
  std::string method;
  std::string target;  ///< path and query
  Headers headers;     ///< values of repeated headers are joined with ", "
  std::string body;
};

struct ServiceAnswer {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  Headers headers;                     ///< further ones
  std::chrono::milliseconds delay{0};  ///< how long the answer is held back
  std::optional<std::string> event;    ///< the name of the event that the request carried
  bool authorized = false;             ///< the key was accepted
};

using ServiceHandler = std::function<ServiceAnswer(const ServiceRequest&)>;

}  // namespace quillmar::service
