#include "quillmar/QuillmarASAAttribution.h"

#include <mutex>
#include <utility>

#include "Attribution/QuillmarASAAttributionCore.h"
#include "Logging/Guarded.h"
#include "quillmar/QuillmarFactory.h"

namespace quillmar {

namespace {

struct Shared {
  std::mutex mutex;
  std::shared_ptr<QuillmarASAAttribution> instance;
};

Shared& sharedInstance() noexcept {
  static Shared& shared = *new Shared;  // never destroyed: exit must not race with tasks
  return shared;
}

}  // namespace

std::shared_ptr<QuillmarASAAttribution> QuillmarASAAttribution::shared() noexcept {
  if (!OwnProcess::isHere()) {
    // The parent's cannot be got at without its lock. This one is as idle as that would be.
    static const auto& idle = *new auto(QuillmarFactory::createQuillmarASAAttribution({}));
    return idle;
  }
  return guarded("Making the shared instance", std::shared_ptr<QuillmarASAAttribution>(), [] {
    Shared& shared = sharedInstance();
    const std::lock_guard lock(shared.mutex);
    if (!shared.instance) {
      shared.instance = QuillmarFactory::createQuillmarASAAttribution(platform::sharedPlatform());
    }
    return shared.instance;
  });
}

void QuillmarASAAttribution::setShared(std::shared_ptr<QuillmarASAAttribution> instance) noexcept {
  guarded("Replacing the shared instance", [&instance] {
    Shared& shared = sharedInstance();
    const std::lock_guard lock(shared.mutex);
    shared.instance.swap(instance);
  });
}

QuillmarASAAttribution::QuillmarASAAttribution(std::shared_ptr<platform::UserDefaults> userDefaults,
                                               platform::Bundle bundle, const platform::Platform& platform)
    : core_(std::make_shared<QuillmarASAAttributionCore>(std::move(userDefaults), std::move(bundle), platform)) {}

QuillmarASAAttribution::~QuillmarASAAttribution() {
  if (!OwnProcess::isHere()) {
    OwnProcess::abandon(std::move(core_));
  }
}

void QuillmarASAAttribution::enableASAAttributionTracking() noexcept {
  guarded("enableASAAttributionTracking", [this] { core_->enableASAAttributionTracking(); });
}

void QuillmarASAAttribution::disableASAAttributionTracking() noexcept {
  guarded("disableASAAttributionTracking", [this] { core_->disableASAAttributionTracking(); });
}

bool QuillmarASAAttribution::drain(std::chrono::milliseconds timeout) noexcept {
  return guarded("drain", false, [&] { return core_->drain(timeout); });
}

QuillmarASAAttributionStatistics QuillmarASAAttribution::statistics() const noexcept {
  return core_->statistics();
}

}  // namespace quillmar
