#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Platform/Curl/CurlHandles.h"
#include "Platform/Curl/CurlHttpTransport.h"
#include "Platform/Curl/Origin.h"
#include "quillmar/platform/HttpTransport.h"

namespace quillmar::platform {

/// One request until its result: what libcurl is told, what comes back, and where redirects lead. It is a row of
/// transfers, on whatever handle and by whomever; threads, queues and completions are the engine's.
class CurlExchange {
 public:
  using Clock = std::chrono::steady_clock;

  explicit CurlExchange(HttpRequest request) noexcept : request_(std::move(request)) {}

  /// A handle for transfers, with what is the same for all of them. It sets `resolves` when it begins to resolve a
  /// name.
  static EasyHandle makeHandle(const CurlHttpTransportOptions& options, bool& resolves);

  /// Starts the clock. An error: the request cannot be sent as it is.
  std::error_code begin(OriginReader& origins, std::size_t maxBodyBytes);

  /// Tells libcurl about the next transfer. `isShared`: a server has answered by HTTP/2. The exchange must stay where
  /// it is until that is over.
  void prepare(CURL* easy, const CurlHttpTransportOptions& options, bool isShared);

  /// What the end of a transfer means. Nothing: a redirect, so prepare another one.
  std::optional<HttpResult> conclude(CURL* easy, CURLcode code, const CurlHttpTransportOptions& options);

  /// The result of an exchange that ends here.
  HttpResult failure(std::error_code error) noexcept;

  /// When the silence will have lasted too long. `watch` looks whether a byte has gone or come since.
  Clock::time_point silentUntil() const noexcept { return lastActivity_ + timeout_; }
  void watch(CURL* easy, Clock::time_point now) noexcept;

 private:
  bool isHarmless() const noexcept;
  bool maySend() const noexcept;
  static int beforeConnecting(void* context, curl_socket_t, curlsocktype) noexcept;
  static int beforeSending(void* context, char*, char*, int, int) noexcept;
  static std::size_t receiveHeadLine(char* data, std::size_t, std::size_t size, void* context) noexcept;
  static std::size_t receiveBody(char* data, std::size_t, std::size_t size, void* context) noexcept;

  HeaderList headerList(bool hasBody) const;
  std::error_code redirect(long status, std::string location);
  std::error_code errorOf(CURL* easy, CURLcode code, const CurlHttpTransportOptions& options) const noexcept;

  HttpRequest request_;  // redirects change it
  HeaderList headers_;
  Origin origin_;
  int redirects_ = 0;
  std::chrono::milliseconds timeout_{0};
  Clock::time_point deadline_;      // of the whole exchange
  Clock::time_point lastActivity_;  // when the last byte went or came
  curl_off_t bytesMoved_ = 0;       // as of then
  bool begun_ = false;              // this transfer connects, or has a connection
  bool sent_ = false;               // this transfer has begun to send
  bool onlyRefused_ = false;        // libcurl sends again only what the server has refused to look at
  bool headEnded_ = false;          // the final response's head is complete
  std::size_t maxBodyBytes_ = 0;
  std::string body_;
  std::error_code bodyError_;          // why the body was refused
  std::array<char, 64> retryAfter_{};  // the header of that name; none that can be read is longer
  std::size_t retryAfterSize_ = 0;
};

}  // namespace quillmar::platform
