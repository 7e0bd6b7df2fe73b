#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>

namespace quillmar::platform {

/// What all transports of the process share: libcurl, with the TLS library below it, and the end of the process, from
/// which on their threads stay out of libcurl, but for its waiting. Never destroyed.
class CurlProcess {
 public:
  /// The first call should come from the host's thread, before the process can exit: with the first transport.
  static CurlProcess& instance();

  /// Makes libcurl ready. Throws `std::runtime_error` when it refuses.
  void initialize();

  /// A stay in libcurl; false, and none, once the process exits. Exit waits for those that were granted, for a while.
  class Stay {
   public:
    Stay() noexcept : isGranted_(instance().enter()) {}
    ~Stay() {
      if (isGranted_) {
        instance().leave();
      }
    }
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

    explicit operator bool() const noexcept { return isGranted_; }

   private:
    const bool isGranted_;
  };

  bool isExiting() noexcept;

 private:
  CurlProcess();

  static void closeAtExit() noexcept;
  bool enter() noexcept;
  void leave() noexcept;
  void close() noexcept;

  static inline thread_local int insideHere_ = 0;
  const pid_t process_;
  std::mutex mutex_;
  std::condition_variable left_;
  int inside_ = 0;
  bool closed_ = false;
};

}  // namespace quillmar::platform
