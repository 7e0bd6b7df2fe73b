#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace quillmar::service {

/// What is told about a request that was answered; never the key that came with it.
struct ServedRequest {
  std::string method;
  std::string path;  ///< without the query
  int status = 0;
  std::optional<std::string> event;
  bool authorized = false;
  std::size_t bodyBytes = 0;
  std::uint64_t connection = 0;  ///< which connection it came on, counted from 1
};

/// {"request":{"method":"POST","path":"/ios/events","status":200,"event":"purchase","authorized":true,"bytes":172}},
/// without "event" when there was none.
std::string jsonLine(const ServedRequest& request);

}  // namespace quillmar::service
