#pragma once

#include <signal.h>

namespace quillmar::platform {

/// While it lives, a write of this thread that fails raises no signal: neither SIGPIPE, for a pipe that nobody reads,
/// nor SIGXFSZ, for a file beyond the limit of the process. Both would end a host that did nothing wrong. Does not
/// throw.
class NoWriteSignals {
 public:
  NoWriteSignals() noexcept {
    sigemptyset(&ours_);
    sigaddset(&ours_, SIGPIPE);
    sigaddset(&ours_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &ours_, &before_);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      if (sigismember(&before_, signal) == 1) {
        sigdelset(&ours_, signal);  // the host holds it back itself
      }
    }
  }
  ~NoWriteSignals() {
    if (sigismember(&ours_, SIGPIPE) == 0 && sigismember(&ours_, SIGXFSZ) == 0) {
      return;
    }
    // None of them was waiting before: it would have been delivered.
    sigset_t waiting;
    sigpending(&waiting);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      if (sigismember(&ours_, signal) == 1 && sigismember(&waiting, signal) == 1) {
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, signal);
        int taken = 0;
        sigwait(&only, &taken);
      }
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  NoWriteSignals(const NoWriteSignals&) = delete;
  NoWriteSignals& operator=(const NoWriteSignals&) = delete;

 private:
  sigset_t ours_{};  ///< those that were not blocked before
  sigset_t before_{};
};

}  // namespace quillmar::platform
