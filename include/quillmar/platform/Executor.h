#pragma once

#include <functional>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// Runs the library's work off the caller's thread. On Apple systems: a dispatch queue.
class QUILLMAR_API Executor {
 public:
  virtual ~Executor() = default;

  /// Takes over `work` and runs it once, later, never inside this call.
  ///
  /// Called from any thread, also from work that is running; must not block. Items may run at the same time on
  /// different threads: the library orders what needs order itself. An executor that shuts down drops what has not
  /// started, by destroying it. Work that throws is a fault of the library; it never does.
  virtual void post(std::function<void()> work) = 0;
};

}  // namespace quillmar::platform
