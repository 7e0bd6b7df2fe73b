#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Curl/CurlExchange.h"
#include "Platform/Curl/CurlHandles.h"
#include "Platform/Curl/CurlHttpTransport.h"
#include "Platform/Curl/Origin.h"

namespace quillmar::platform {

/// The queue of a transport and the thread that takes from it: it does the transfers and calls the completions. The
/// thread holds the engine, too, so that the transport may be destroyed by one of its own completions.
class CurlEngine : public std::enable_shared_from_this<CurlEngine> {
 public:
  using RequestId = HttpTransport::RequestId;
  using Completion = HttpTransport::Completion;

  explicit CurlEngine(CurlHttpTransportOptions options);

  RequestId start(HttpRequest request, Completion completion);
  void cancel(RequestId id) noexcept;

  /// No completion is called from here on. Waits for one that is running, unless this is called by it.
  void stop() noexcept;

 private:
  /// A request that is not over. Only `cancelRequested` is looked at by more than one thread, with the mutex held.
  struct Job {
    Job(HttpRequest request, Completion completion_)
        : exchange(std::move(request)), completion(std::move(completion_)) {}

    RequestId id = 0;
    CurlExchange exchange;
    Completion completion;
    bool cancelRequested = false;
    EasyHandle easy;
    bool transferring = false;
  };
  using Jobs = std::map<RequestId, Job>;  // the oldest first; nodes move between maps without allocating

  // With the mutex held.
  void launch();
  void wake() noexcept;

  // The thread's.
  void run() noexcept;
  bool leaveToItself() noexcept;
  bool work(bool broken) noexcept;
  bool block() noexcept;
  bool isStopping() noexcept;
  void endCancelled() noexcept;
  void endSilent() noexcept;
  void endAll() noexcept;
  void reapFinished() noexcept;
  void learn(CURL* easy) noexcept;
  Jobs::node_type nextEnding() noexcept;
  Job* admit() noexcept;
  template <class Predicate>
  Job* findRunning(Predicate predicate) noexcept;
  template <class Step>
  void advance(Job& job, Step step) noexcept;
  void transfer(Job& job);
  void detach(Job& job) noexcept;
  void finish(Job& job, HttpResult result) noexcept;
  void letGo() noexcept;

  CurlHttpTransportOptions options_;

  std::mutex mutex_;
  std::size_t room_ = 0;  // how many may be running
  Jobs waiting_;
  Jobs running_;
  Jobs ending_;           // cancelled before they began
  bool blocked_ = false;  // the thread waits, or is about to
  bool stopping_ = false;
  RequestId lastId_ = 0;
  std::thread thread_;

  MultiHandle multi_;              // made before the thread starts; else the thread's, but for `curl_multi_wakeup`
  std::vector<EasyHandle> spare_;  // the thread's
  std::size_t handles_ = 0;        // the thread's
  bool resolves_ = false;          // the thread's: libcurl has begun to resolve a name
  bool isShared_ = false;          // the thread's: the last answer came by HTTP/2
  OriginReader origins_;           // the thread's
};

}  // namespace quillmar::platform
