#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "Logging/Guarded.h"
#include "quillmar/platform/Platform.h"

namespace quillmar {

/// The instance of the process of a public class, made when it is first asked for.
template <class Facade>
class SharedInstance {
 public:
  using Make = std::shared_ptr<Facade> (*)(const platform::Platform&) noexcept;

  explicit SharedInstance(Make make) noexcept : make_(make) {}

  std::shared_ptr<Facade> get() noexcept {
    if (!OwnProcess::isHere()) {
      // The parent's cannot be got at without its lock. This one is as idle as that would be.
      static const auto& idle = *new auto(make_({}));
      return idle;
    }
    return guarded("Making the shared instance", std::shared_ptr<Facade>(), [this] {
      const std::lock_guard lock(mutex_);
      if (!instance_) {
        instance_ = make_(platform::sharedPlatform());
      }
      return instance_;
    });
  }

  void set(std::shared_ptr<Facade> instance) noexcept {
    guarded("Replacing the shared instance", [&] {
      const std::lock_guard lock(mutex_);
      instance_.swap(instance);
    });
  }

 private:
  const Make make_;
  std::mutex mutex_;
  std::shared_ptr<Facade> instance_;
};

/// Lets go of what stands behind a public class. In a forked child it is kept instead: destructors would wait there for
/// threads that stayed behind.
template <class Core>
void letGo(std::shared_ptr<Core>& core) noexcept {
  if (core && !OwnProcess::isHere()) {
    OwnProcess::abandon(std::move(core));
  }
}

}  // namespace quillmar
