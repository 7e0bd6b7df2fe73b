#include "Platform/Curl/Origin.h"

#include <algorithm>
#include <new>
#include <utility>

#include "Platform/Ascii.h"
#include "Platform/Curl/CurlHandles.h"

namespace quillmar::platform {

std::error_code Origin::read(const std::string& url, Origin& origin) {
  if (url.empty()) {
    return URLError::unsupportedURL;
  }
  if (url.find('\0') != std::string::npos) {
    return URLError::badURL;
  }
  const UrlHandle handle(curl_url());
  if (!handle) {
    throw std::bad_alloc();
  }
  switch (curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0)) {
    case CURLUE_OK:
      break;
    case CURLUE_OUT_OF_MEMORY:
      throw std::bad_alloc();
    case CURLUE_BAD_SCHEME:
    case CURLUE_UNSUPPORTED_SCHEME:
      return URLError::unsupportedURL;
    default:
      return URLError::badURL;
  }
  const auto part = [&](CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(handle.get(), which, &text, CURLU_DEFAULT_PORT) == CURLUE_OUT_OF_MEMORY) {
      throw std::bad_alloc();
    }
    const CurlText owner(text);
    return std::string(text == nullptr ? "" : text);
  };
  origin = {part(CURLUPART_SCHEME), part(CURLUPART_HOST), part(CURLUPART_PORT)};
  for (std::string* text : {&origin.scheme, &origin.host}) {
    std::ranges::transform(*text, text->begin(), lowerAscii);
  }
  if (origin.scheme != "http" && origin.scheme != "https") {
    return URLError::unsupportedURL;
  }
  return {};
}

std::error_code OriginReader::read(const std::string& url, Origin& origin) {
  if (url != url_) {
    std::string copy = url;
    Origin found;
    const std::error_code error = Origin::read(url, found);
    url_ = std::move(copy);
    origin_ = std::move(found);
    error_ = error;
  }
  origin = origin_;
  return error_;
}

}  // namespace quillmar::platform
