#include "Network/RequestBodyContainerProtocol.h"

#include <fmt/format.h>

#include "Platform/Ascii.h"

namespace quillmar {

void setHeader(platform::HttpRequest& request, const std::string& name, std::string value) {
  std::erase_if(request.headers, [&name](const auto& header) { return equalsIgnoringCase(header.first, name); });
  request.headers.emplace(name, std::move(value));
}

void setBody(platform::HttpRequest& request, std::string body, std::string contentType) {
  request.body = std::move(body);
  setHeader(request, "Content-Type", std::move(contentType));
  setHeader(request, "Content-Length", fmt::to_string(request.body.size()));
}

}  // namespace quillmar
