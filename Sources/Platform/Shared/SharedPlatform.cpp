#include <deque>
#include <mutex>
#include <utility>

#include "Logging/Log.h"
#include "quillmar/platform/Platform.h"

namespace quillmar::platform {

namespace {

/// The platforms in use so far. The last one counts; the others stay, since references to them may be out. Never
/// destroyed, so that the end of the process cannot race with threads that use them.
struct SharedPlatforms {
  std::mutex mutex;
  std::deque<Platform> platforms;

  static SharedPlatforms& instance() {
    static auto* const shared = new SharedPlatforms;
    return *shared;
  }

  const Platform& add(Platform platform) {
    const Platform& added = platforms.emplace_back(std::move(platform));
    Log::setSink(added.logSink, added.clock);
    return added;
  }
};

}  // namespace

const Platform& sharedPlatform() {
  SharedPlatforms& shared = SharedPlatforms::instance();
  const std::lock_guard lock(shared.mutex);
  return shared.platforms.empty() ? shared.add(makeDefaultPlatform()) : shared.platforms.back();
}

void setSharedPlatform(Platform platform) {
  SharedPlatforms& shared = SharedPlatforms::instance();
  const std::lock_guard lock(shared.mutex);
  shared.add(std::move(platform));
}

}  // namespace quillmar::platform
