#include "quillmar/simulated/InMemoryHttpTransport.h"

#include <algorithm>
#include <utility>

#include "quillmar/platform/URLError.h"

namespace quillmar::simulated {

using platform::HttpRequest;
using platform::HttpResult;
using platform::URLError;

struct InMemoryHttpTransport::State {
  struct Exchange {
    Completion completion;
    HttpResult result;
    std::optional<platform::Clock::TimerId> timer;
  };

  std::shared_ptr<platform::Clock> clock;
  std::mutex mutex;
  Service service;
  RequestId lastRequest = 0;
  std::map<RequestId, Exchange> exchanges;
  std::vector<HttpRequest> requests;

  /// Ends the exchange with its result when `delay` has passed. Not called with the mutex held.
  static void finishAfter(const std::shared_ptr<State>& state, RequestId request, std::chrono::nanoseconds delay) {
    const auto timer = state->clock->after(delay, [weak = std::weak_ptr(state), request] {
      const std::shared_ptr<State> alive = weak.lock();
      if (!alive) {
        return;
      }
      std::unique_lock lock(alive->mutex);
      auto exchange = alive->exchanges.extract(request);
      lock.unlock();
      if (exchange) {
        exchange.mapped().completion(std::move(exchange.mapped().result));
      }
    });
    const std::lock_guard lock(state->mutex);
    if (const auto found = state->exchanges.find(request); found != state->exchanges.end()) {
      found->second.timer = timer;
    }
  }
};

InMemoryHttpTransport::InMemoryHttpTransport(std::shared_ptr<platform::Clock> clock, Service service)
    : state_(std::make_shared<State>()) {
  state_->clock = std::move(clock);
  setService(std::move(service));
}

InMemoryHttpTransport::~InMemoryHttpTransport() {
  dropUnanswered();
}

void InMemoryHttpTransport::dropUnanswered() noexcept {
  std::map<RequestId, State::Exchange> dropped;
  {
    const std::lock_guard lock(state_->mutex);
    dropped.swap(state_->exchanges);
  }
  for (const auto& [request, exchange] : dropped) {
    if (exchange.timer) {
      state_->clock->cancel(*exchange.timer);
    }
  }
}

InMemoryHttpTransport::RequestId InMemoryHttpTransport::start(HttpRequest request, Completion completion) {
  Service service;
  RequestId identifier = 0;
  {
    const std::lock_guard lock(state_->mutex);
    state_->requests.push_back(request);
    service = state_->service;
    identifier = ++state_->lastRequest;
  }
  InMemoryAnswer answer;
  if (request.url.empty()) {
    answer.result.error = URLError::unsupportedURL;
  } else {
    answer = service(request);
    if (answer.result.url.empty()) {
      answer.result.url = request.url;
    }
  }
  // The limit keeps the conversion in range: a time-out may be infinite.
  constexpr std::chrono::duration<double> century = std::chrono::hours{24 * 36525};
  const auto timeout = std::chrono::duration_cast<std::chrono::nanoseconds>(std::min(request.timeout, century));
  if (answer.never || answer.delay > timeout) {
    answer.result = {};
    answer.result.error = URLError::timedOut;
    answer.delay = timeout;
  }
  {
    const std::lock_guard lock(state_->mutex);
    state_->exchanges.emplace(identifier, State::Exchange{std::move(completion), std::move(answer.result), {}});
  }
  try {
    State::finishAfter(state_, identifier, answer.delay);
  } catch (...) {  // out of memory: the request was not started
    const std::lock_guard lock(state_->mutex);
    state_->exchanges.erase(identifier);
    throw;
  }
  return identifier;
}

void InMemoryHttpTransport::cancel(RequestId request) noexcept {
  std::optional<platform::Clock::TimerId> timer;
  {
    const std::lock_guard lock(state_->mutex);
    const auto found = state_->exchanges.find(request);
    if (found == state_->exchanges.end()) {
      return;
    }
    timer = std::exchange(found->second.timer, std::nullopt);
    found->second.result = {};
    found->second.result.error = URLError::cancelled;
  }
  if (timer) {
    state_->clock->cancel(*timer);
  }
  State::finishAfter(state_, request, std::chrono::nanoseconds{0});
}

void InMemoryHttpTransport::setService(Service service) {
  if (!service) {
    service = [](const HttpRequest&) {
      InMemoryAnswer notFound;
      notFound.result.statusCode = 404;
      return notFound;
    };
  }
  const std::lock_guard lock(state_->mutex);
  state_->service.swap(service);
}

std::vector<HttpRequest> InMemoryHttpTransport::requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

}  // namespace quillmar::simulated
