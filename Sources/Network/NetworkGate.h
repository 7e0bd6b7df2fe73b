#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

#include "quillmar/platform/Executor.h"
#include "quillmar/platform/HttpTransport.h"

namespace quillmar {

/// The one way of an instance's requests to the transport. While it is closed, requests are held in their order, and no
/// time-out runs. Those that have passed go on.
class NetworkGate : public std::enable_shared_from_this<NetworkGate> {
 public:
  using Completion = platform::HttpTransport::Completion;
  struct Request {
    platform::HttpRequest request;
    Completion completion;
  };
  using Requests = std::deque<Request>;

  /// `serial` runs one item at a time. What was held is started there.
  NetworkGate(std::shared_ptr<platform::HttpTransport> transport, std::shared_ptr<platform::Executor> serial) noexcept;

  /// Starts the request, now or when the gate opens. `completion` is called, or destroyed, as by a transport.
  void start(platform::HttpRequest request, Completion completion);

  /// Any thread. What was held begins before anything that comes after the opening.
  void setClosed(bool closed);

  /// For a function that waits, and would wait for what is held, too: says so in the log, once a closing.
  void warnWhileClosed();

  /// Takes out what is held, so that it never begins. Whoever destroys it destroys tasks: not with a lock held.
  Requests takeHeld() noexcept;

  /// The same, also for what comes while requests are held: nobody will open the gate. What is held holds it.
  void abandon() noexcept;

 private:
  void release();

  const std::shared_ptr<platform::HttpTransport> transport_;
  const std::shared_ptr<platform::Executor> serial_;
  std::atomic<bool> isHolding_{false};  ///< closed, or open with requests that have yet to be started
  std::mutex mutex_;
  bool isClosed_ = false;
  bool hasWarned_ = false;
  bool isAbandoned_ = false;
  Requests held_;
};

}  // namespace quillmar
