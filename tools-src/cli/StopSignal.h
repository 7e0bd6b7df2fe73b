#pragma once

#include <chrono>

namespace quillmar::cli {

/// The wish to stop, from a signal or from another thread. Once it is there it stays.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  /// Lets SIGINT and SIGTERM raise this one from now on, each once; a second one ends the process. For one object in
  /// the process, which must outlive the last signal.
  void listenForSignals();

  /// Async-signal-safe.
  void raise() noexcept;
  bool raised() const noexcept;

  /// Waits for the wish, for at most `duration`; true when it is there.
  bool waitFor(std::chrono::nanoseconds duration) const noexcept;
  void wait() const noexcept;

  /// Readable when the wish is there; not to be read from.
  int descriptor() const noexcept { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace quillmar::cli
