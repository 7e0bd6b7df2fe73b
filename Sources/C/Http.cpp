#include <map>
#include <vector>

#include "C/PlatformHandle.h"
#include "quillmar/platform/URLError.h"

namespace quillmar {

namespace {

/// A completion that goes when it is called, and with its transport.
struct Exchange {
  platform::HttpTransport::Completion taken() {
    const std::lock_guard lock(mutex);
    return std::exchange(completion, nullptr);
  }

  std::mutex mutex;
  platform::HttpTransport::Completion completion;
};

}  // namespace

}  // namespace quillmar

struct quillmar_http_completion : quillmar::Pending<std::shared_ptr<quillmar::Exchange>> {};

namespace quillmar {

namespace {

using platform::URLError;

static_assert(static_cast<int>(URLError::unknown) == QUILLMAR_HTTP_UNKNOWN &&
              static_cast<int>(URLError::networkConnectionLost) == QUILLMAR_HTTP_NETWORK_CONNECTION_LOST &&
              static_cast<int>(URLError::proxyRefusedConnection) == QUILLMAR_HTTP_PROXY_REFUSED_CONNECTION);

class TableTransport final : public platform::HttpTransport {
 public:
  ~TableTransport() override {
    for (const auto& [id, exchange] : exchanges_) {
      if (const auto open = exchange.lock()) {
        open->taken();
      }
    }
  }

  RequestId start(platform::HttpRequest request, Completion completion) override {
    std::vector<quillmar_http_header> headers;
    headers.reserve(request.headers.size());
    for (const auto& [name, value] : request.headers) {
      headers.push_back({name.c_str(), value.c_str()});
    }
    const quillmar_http_request given{
        sizeof given,        request.url.c_str(),     request.method.c_str(),
        headers.data(),      headers.size(),          request.body.data(),
        request.body.size(), request.timeout.count(), static_cast<quillmar_cache_policy>(request.cachePolicy)};
    auto handle = std::make_unique<quillmar_http_completion>();
    handle->callback = std::make_shared<Exchange>();
    handle->callback->completion = std::move(completion);
    RequestId id = 0;
    {
      const std::lock_guard lock(mutex_);
      std::erase_if(exchanges_, [](const auto& entry) { return entry.second.expired(); });
      id = ++lastId_;
      exchanges_.emplace(id, handle->callback);
    }
    table->call<&quillmar_http::start>(std::uint64_t{id}, &given, handle.release());
    return id;
  }

  void cancel(RequestId request) noexcept override { table->call<&quillmar_http::cancel>(std::uint64_t{request}); }

  std::shared_ptr<const Table<quillmar_http>> table;

 private:
  std::mutex mutex_;
  RequestId lastId_ = 0;
  std::map<RequestId, std::weak_ptr<Exchange>> exchanges_;
};

platform::HttpResult resultOf(const quillmar_http_result* given) {
  platform::HttpResult made;
  const auto known = received(given);
  const quillmar_http_result result = known.value_or(quillmar_http_result{});
  made.url = orEmpty(result.url);
  const bool isKnown = result.error >= QUILLMAR_HTTP_OK && result.error <= QUILLMAR_HTTP_PROXY_REFUSED_CONNECTION;
  if (!known || !isKnown || (result.body == nullptr && result.body_size > 0)) {
    made.error = URLError::unknown;
  } else if (result.error != QUILLMAR_HTTP_OK) {
    made.error = static_cast<URLError>(result.error);
  } else {
    made.statusCode = result.status_code >= 0 ? std::optional<int>(result.status_code) : std::nullopt;
    made.body.assign(static_cast<const char*>(result.body), result.body_size);
    made.retryAfter = orEmpty(result.retry_after);
  }
  return made;
}

}  // namespace

}  // namespace quillmar

using namespace quillmar;

void quillmar_http_completion_call(quillmar_http_completion* completion, const quillmar_http_result* result) {
  const auto exchange = quillmar_http_completion::taken(completion);
  statusOf([&] {
    if (const auto callback = exchange ? exchange->taken() : nullptr) {
      callback(resultOf(result));
    }
    return QUILLMAR_OK;
  });
}
void quillmar_http_completion_drop(quillmar_http_completion* completion) {
  if (const auto exchange = quillmar_http_completion::taken(completion)) {
    exchange->taken();
  }
}

quillmar_status quillmar_platform_set_http(quillmar_platform* platform, const quillmar_http* http) {
  return setMember<TableTransport>(platform, &platform::Platform::http, http, &quillmar_http::start,
                                   &quillmar_http::cancel);
}
