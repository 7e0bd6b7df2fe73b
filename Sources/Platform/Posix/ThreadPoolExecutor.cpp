#include "Platform/Posix/ThreadPoolExecutor.h"

#include <signal.h>

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/ThreadName.h"

namespace quillmar::platform {

struct ThreadPoolExecutor::State {
  explicit State(std::size_t count) : threadCount(count) {}

  const std::size_t threadCount;
  boost::asio::io_context context{static_cast<int>(threadCount)};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{context.get_executor()};
  std::atomic<bool> started{false};
  std::mutex mutex;
  bool stopping = false;
  std::vector<std::thread> threads;

  /// Starts one more thread. It starts the next one itself, so that the caller, who may be the host's main thread,
  /// pays for one only.
  static void startThread(const std::shared_ptr<State>& state) {
    const std::lock_guard lock(state->mutex);
    if (state->stopping || state->threads.size() == state->threadCount) {
      return;
    }
    try {
      state->threads.emplace_back([state] {
        leaveSignalsToTheHost();
        nameThisThread("quillmar-work");
        startThread(state);
        state->context.run();
      });
      state->started = true;
    } catch (const std::system_error&) {
      // No more threads at the moment. One is enough to go on; without any, the next use tries again.
    }
  }

  /// A host's signal handlers run on the host's threads, except for those of faults, which must run where these are.
  static void leaveSignalsToTheHost() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF}) {
      sigdelset(&signals, fault);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  }
};

ThreadPoolExecutor::ThreadPoolExecutor(std::size_t threads) : state_(std::make_shared<State>(threads)) {}

ThreadPoolExecutor::~ThreadPoolExecutor() {
  std::vector<std::thread> threads;
  {
    const std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    threads.swap(state_->threads);
  }
  state_->context.stop();
  for (std::thread& thread : threads) {
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();
    } else {
      thread.join();
    }
  }
}

void ThreadPoolExecutor::post(std::function<void()> work) {
  const std::shared_ptr<State> state = state_;  // the work may destroy this executor before the call has ended
  boost::asio::post(context(), std::move(work));
}

boost::asio::io_context& ThreadPoolExecutor::context() {
  if (!state_->started) {
    State::startThread(state_);
  }
  return state_->context;
}

}  // namespace quillmar::platform
