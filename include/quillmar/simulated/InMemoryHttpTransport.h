#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "quillmar/platform/Clock.h"
#include "quillmar/platform/HttpTransport.h"

namespace quillmar::simulated {

/// What a service in the same process answers, and how long it takes.
struct InMemoryAnswer {
  platform::HttpResult result;
  std::chrono::nanoseconds delay{0};
  /// The answer never comes; the request ends with its time-out or when it is cancelled.
  bool never = false;
};

/// A transport without a network: a function plays the service. Delays and time-outs run on the given clock.
class InMemoryHttpTransport : public platform::HttpTransport {
 public:
  /// Answers a request, on the thread that starts it.
  using Service = std::function<InMemoryAnswer(const platform::HttpRequest&)>;

  /// `service` as for `setService`.
  InMemoryHttpTransport(std::shared_ptr<platform::Clock> clock, Service service);
  ~InMemoryHttpTransport() override;

  RequestId start(platform::HttpRequest request, Completion completion) override;
  void cancel(RequestId request) noexcept override;

  /// What answers from now on; null: a service that knows no path, and answers with the status 404.
  void setService(Service service);

  /// Destroys the completions of the exchanges that have no answer yet, without calling them.
  void dropUnanswered() noexcept;

  /// Every request so far, in order.
  std::vector<platform::HttpRequest> requests() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace quillmar::simulated
