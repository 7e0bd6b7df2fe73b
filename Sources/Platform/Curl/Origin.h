#pragma once

#include <string>
#include <system_error>

#include "quillmar/platform/URLError.h"

namespace quillmar::platform {

/// What credentials belong to.
struct Origin {
  std::string scheme;  ///< "http" or "https"
  std::string host;
  std::string port;

  /// The origin of a URL, or why it has none that we can go to.
  static std::error_code read(const std::string& url, Origin& origin);

  friend bool operator==(const Origin&, const Origin&) = default;
};

/// Remembers the last URL that was read: most requests go where the one before went.
class OriginReader {
 public:
  std::error_code read(const std::string& url, Origin& origin);

 private:
  std::string url_;
  Origin origin_;
  std::error_code error_ = URLError::unsupportedURL;  // so it is for the empty URL
};

}  // namespace quillmar::platform
