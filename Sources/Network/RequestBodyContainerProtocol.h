#pragma once

#include <string>
#include <utility>

#include "quillmar/platform/HttpTransport.h"

namespace quillmar {

/// A request body that knows how to put itself into a request.
class RequestBodyContainerProtocol {
 public:
  virtual ~RequestBodyContainerProtocol() = default;

  /// Sets the body, "Content-Type" and "Content-Length". Throws when the body cannot be encoded.
  virtual void add(platform::HttpRequest& request) const = 0;
};

/// Sets a header field in place of any of that name, whatever its letter case.
void setHeader(platform::HttpRequest& request, const std::string& name, std::string value);

/// Sets a body with the two headers that describe it.
void setBody(platform::HttpRequest& request, std::string body, std::string contentType);

}  // namespace quillmar
