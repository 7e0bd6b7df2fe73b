#include "Platform/Curl/CurlEngine.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "Platform/Curl/CurlProcess.h"
#include "Platform/Curl/SocketPairs.h"
#include "Platform/OwnProcess.h"
#include "Platform/ThreadName.h"
#include "quillmar/platform/URLError.h"

namespace quillmar::platform {

namespace {

constexpr std::size_t kMostConnections = 1000;
/// At a time on a connection that can be shared. Servers allow at least so many as a rule, and libcurl opens another
/// connection, or lets the rest wait, when one allows less.
constexpr std::size_t kMostStreams = 100;

MultiHandle makeMulti(long connections) {
  MultiHandle multi(curl_multi_init());
  // Idle connections count, too: one to another server is closed when room is needed.
  if (!multi || curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, connections) != CURLM_OK ||
      curl_multi_setopt(multi.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS, connections) != CURLM_OK) {
    throw std::bad_alloc();
  }
  closeWakeUpPairOnExec(multi.get());
  return multi;
}

}  // namespace

CurlEngine::CurlEngine(CurlHttpTransportOptions options) : options_(std::move(options)) {
  options_.maxConnections = std::clamp<std::size_t>(options_.maxConnections, 1, kMostConnections);
  room_ = options_.maxConnections;
  CurlProcess::instance();
}

CurlEngine::RequestId CurlEngine::start(HttpRequest request, Completion completion) {
  Jobs added;
  auto node = added.extract(added.try_emplace(0, std::move(request), std::move(completion)).first);
  const std::lock_guard lock(mutex_);
  if (!thread_.joinable()) {
    launch();
  }
  const RequestId id = ++lastId_;
  node.key() = id;
  node.mapped().id = id;
  waiting_.insert(waiting_.end(), std::move(node));
  if (running_.size() < room_) {
    wake();
  }
  return id;
}

void CurlEngine::cancel(RequestId id) noexcept {
  const std::lock_guard lock(mutex_);
  if (auto node = waiting_.extract(id)) {
    ending_.insert(std::move(node));
  } else if (const auto found = running_.find(id); found != running_.end()) {
    found->second.cancelRequested = true;
  } else {
    return;
  }
  wake();
}

/// When the process exits, the thread is left to itself.
void CurlEngine::stop() noexcept {
  const CurlProcess::Stay stay;  // OpenSSL cleans up as a thread ends: exit waits for that, too
  std::thread thread;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    if (stay) {
      thread = std::move(thread_);
    }
    wake();
  }
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else if (thread.joinable()) {
    thread.join();
  }
}

/// Does nothing when the process exits: the requests wait for ever then.
void CurlEngine::launch() {
  if (const CurlProcess::Stay stay; stay) {
    CurlProcess::instance().initialize();
    multi_ = makeMulti(static_cast<long>(options_.maxConnections));
    thread_ = std::thread([self = shared_from_this()] { self->run(); });
  }
}

/// One wake-up is enough until the thread looks at the queue again.
void CurlEngine::wake() noexcept {
  if (std::exchange(blocked_, false)) {
    curl_multi_wakeup(multi_.get());
  }
}

void CurlEngine::run() noexcept {
  nameThisThread("quillmar-http");
  bool broken = false;
  while (!isStopping()) {
    {
      const CurlProcess::Stay stay;
      if (!stay) {
        break;
      }
      broken = !work(broken);
    }
    broken = broken || !block();
  }
  if (const CurlProcess::Stay stay; stay) {
    letGo();
  } else {
    OwnProcess::abandon(shared_from_this());  // to clean up is to use TLS, and so is the end of this thread
    if (leaveToItself()) {
      while (true) {
        ::pause();
      }
    }
  }
}

/// False when somebody waits for the thread.
bool CurlEngine::leaveToItself() noexcept {
  const std::lock_guard lock(mutex_);
  if (!thread_.joinable()) {
    return false;
  }
  thread_.detach();
  return true;
}

/// Everything but waiting. False when libcurl cannot go on.
bool CurlEngine::work(bool broken) noexcept {
  if (broken) {
    endAll();
  }
  endCancelled();
  while (Job* job = admit()) {
    advance(*job, [&] {
      if (const std::error_code error = job->exchange.begin(origins_, options_.maxBodyBytes)) {
        finish(*job, job->exchange.failure(error));
      } else {
        transfer(*job);
      }
    });
  }
  int active = 0;
  const CURLMcode code = curl_multi_perform(multi_.get(), &active);
  if (std::exchange(resolves_, false)) {
    closeResolverPairsOnExec(multi_.get());
  }
  reapFinished();
  endSilent();
  return code == CURLM_OK;
}

/// Waits for the network, a wake-up or the next exchange that has been silent for too long.
bool CurlEngine::block() noexcept {
  auto wait = std::chrono::milliseconds(std::numeric_limits<int>::max());
  {
    const std::lock_guard lock(mutex_);
    const bool idle = ending_.empty() && (waiting_.empty() || running_.size() >= room_) &&
                      std::ranges::none_of(running_, [](auto& entry) { return entry.second.cancelRequested; });
    if (stopping_ || !idle) {
      return true;
    }
    const auto now = CurlExchange::Clock::now();
    for (const auto& [id, job] : running_) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(job.exchange.silentUntil() - now);
      wait = std::clamp(left, std::chrono::milliseconds(0), wait);
    }
    blocked_ = true;
  }
  // libcurl shortens the wait to its own next timer.
  return curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(wait.count()), nullptr) == CURLM_OK;
}

bool CurlEngine::isStopping() noexcept {
  const std::lock_guard lock(mutex_);
  return stopping_;
}

void CurlEngine::endCancelled() noexcept {
  while (Jobs::node_type node = nextEnding()) {
    Job& job = node.mapped();
    job.completion(job.exchange.failure(URLError::cancelled));
  }
  while (Job* job = findRunning([](const Job& running) { return running.cancelRequested; })) {
    finish(*job, job->exchange.failure(URLError::cancelled));
  }
}

/// Notes which exchanges have moved and ends those that were silent for too long.
void CurlEngine::endSilent() noexcept {
  const auto now = CurlExchange::Clock::now();
  const auto silent = [now](Job& job) {
    if (job.transferring) {
      job.exchange.watch(job.easy.get(), now);
    }
    return job.transferring && now >= job.exchange.silentUntil();
  };
  while (Job* job = findRunning(silent)) {
    finish(*job, job->exchange.failure(URLError::timedOut));
  }
}

/// libcurl cannot go on, because memory or file descriptors are short: everything in flight fails, what waits gets a
/// chance.
void CurlEngine::endAll() noexcept {
  while (Job* job = findRunning([](const Job&) { return true; })) {
    finish(*job, job->exchange.failure(URLError::unknown));
  }
}

void CurlEngine::reapFinished() noexcept {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) {
      continue;
    }
    const CURLcode code = message->data.result;
    Job* job = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &job);
    detach(*job);
    learn(job->easy.get());
    advance(*job, [&] {
      if (auto result = job->exchange.conclude(job->easy.get(), code, options_)) {
        finish(*job, std::move(*result));
      } else {
        transfer(*job);
      }
    });
    if (isStopping()) {
      break;
    }
  }
}

/// Makes room for what the last answer has shown to be possible.
void CurlEngine::learn(CURL* easy) noexcept {
  long version = CURL_HTTP_VERSION_NONE;
  curl_easy_getinfo(easy, CURLINFO_HTTP_VERSION, &version);
  if (version == CURL_HTTP_VERSION_NONE) {
    return;  // no answer
  }
  isShared_ = version >= CURL_HTTP_VERSION_2_0;
  const std::lock_guard lock(mutex_);
  room_ = isShared_ ? std::max(options_.maxConnections, kMostStreams) : options_.maxConnections;
}

CurlEngine::Jobs::node_type CurlEngine::nextEnding() noexcept {
  const std::lock_guard lock(mutex_);
  return stopping_ || ending_.empty() ? Jobs::node_type() : ending_.extract(ending_.begin());
}

/// Moves the oldest request out of the queue if there is room for it.
CurlEngine::Job* CurlEngine::admit() noexcept {
  const std::lock_guard lock(mutex_);
  blocked_ = false;
  if (stopping_ || waiting_.empty() || running_.size() >= room_) {
    return nullptr;
  }
  return &running_.insert(waiting_.extract(waiting_.begin())).position->second;
}

/// A running job that fits; none when the transport is gone.
template <class Predicate>
CurlEngine::Job* CurlEngine::findRunning(Predicate predicate) noexcept {
  const std::lock_guard lock(mutex_);
  if (!stopping_) {
    for (auto& [id, job] : running_) {
      if (predicate(job)) {
        return &job;
      }
    }
  }
  return nullptr;
}

/// Takes a job one step on, which ends it when it throws.
template <class Step>
void CurlEngine::advance(Job& job, Step step) noexcept {
  try {
    step();
  } catch (const std::bad_alloc&) {
    finish(job, job.exchange.failure(std::make_error_code(std::errc::not_enough_memory)));
  } catch (const std::exception&) {
    finish(job, job.exchange.failure(URLError::unknown));
  }
}

/// Hands the exchange as it now is to libcurl.
void CurlEngine::transfer(Job& job) {
  if (!job.easy && !spare_.empty()) {
    job.easy = std::move(spare_.back());
    spare_.pop_back();
  } else if (!job.easy) {
    spare_.reserve(handles_ + 1);  // so that giving the handle back cannot fail
    job.easy = CurlExchange::makeHandle(options_, resolves_);
    ++handles_;
  }
  job.exchange.prepare(job.easy.get(), options_, isShared_);
  curl_easy_setopt(job.easy.get(), CURLOPT_PRIVATE, &job);
  const CURLMcode code = curl_multi_add_handle(multi_.get(), job.easy.get());
  if (code != CURLM_OK) {
    throw std::runtime_error(curl_multi_strerror(code));
  }
  job.transferring = true;
}

void CurlEngine::detach(Job& job) noexcept {
  if (std::exchange(job.transferring, false)) {
    curl_multi_remove_handle(multi_.get(), job.easy.get());
  }
}

/// Takes the job out and calls its completion, unless the transport is gone: `letGo` destroys it then.
void CurlEngine::finish(Job& job, HttpResult result) noexcept {
  detach(job);
  if (job.easy) {
    spare_.push_back(std::move(job.easy));
  }
  Jobs::node_type node;
  {
    const std::lock_guard lock(mutex_);
    if (stopping_) {
      return;
    }
    node = running_.extract(job.id);
    if (job.cancelRequested && result.error != URLError::cancelled) {
      result = {URLError::cancelled, std::move(result.url), std::nullopt, {}};
    }
  }
  job.completion(std::move(result));
}

/// The thread's way out; the completions' destructors may be anybody's code.
void CurlEngine::letGo() noexcept {
  Jobs waiting;
  Jobs running;
  Jobs ending;
  {
    const std::lock_guard lock(mutex_);
    waiting.swap(waiting_);
    running.swap(running_);
    ending.swap(ending_);
  }
  for (auto& [id, job] : running) {
    detach(job);
  }
}

}  // namespace quillmar::platform
