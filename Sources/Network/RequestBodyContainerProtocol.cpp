#include "Network/RequestBodyContainerProtocol.h"

#include <fmt/format.h>

#include <algorithm>

namespace quillmar {

namespace {
char lowerAscii(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
}  // namespace

void setHeader(platform::HttpRequest& request, const std::string& name, std::string value) {
  std::erase_if(request.headers, [&name](const auto& header) {
    return std::equal(header.first.begin(), header.first.end(), name.begin(), name.end(),
                      [](char a, char b) { return lowerAscii(a) == lowerAscii(b); });
  });
  request.headers.emplace(name, std::move(value));
}

void setBody(platform::HttpRequest& request, std::string body, std::string contentType) {
  request.body = std::move(body);
  setHeader(request, "Content-Type", std::move(contentType));
  setHeader(request, "Content-Length", fmt::to_string(request.body.size()));
}

}  // namespace quillmar
