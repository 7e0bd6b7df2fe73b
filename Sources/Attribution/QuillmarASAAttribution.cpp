#include "quillmar/QuillmarASAAttribution.h"

#include <utility>

#include "Attribution/QuillmarASAAttributionCore.h"
#include "Logging/SharedInstance.h"
#include "quillmar/QuillmarFactory.h"

namespace quillmar {

namespace {

SharedInstance<QuillmarASAAttribution>& sharedInstance() noexcept {
  // Never destroyed: exit must not race with tasks.
  static auto& shared = *new SharedInstance<QuillmarASAAttribution>(QuillmarFactory::createQuillmarASAAttribution);
  return shared;
}

}  // namespace

std::shared_ptr<QuillmarASAAttribution> QuillmarASAAttribution::shared() noexcept {
  return sharedInstance().get();
}

void QuillmarASAAttribution::setShared(std::shared_ptr<QuillmarASAAttribution> instance) noexcept {
  sharedInstance().set(std::move(instance));
}

QuillmarASAAttribution::QuillmarASAAttribution(std::shared_ptr<platform::UserDefaults> userDefaults,
                                               platform::Bundle bundle, const platform::Platform& platform)
    : core_(OwnProcess::isHere()
                ? std::make_shared<QuillmarASAAttributionCore>(std::move(userDefaults), std::move(bundle), platform)
                : nullptr) {
  if (core_) {
    core_->joinConsent();
  }
}

QuillmarASAAttribution::~QuillmarASAAttribution() {
  letGo(core_);
}

void QuillmarASAAttribution::setOptions(const QuillmarOptions& options) noexcept {
  guarded("setOptions", [&] { core_->setOptions(options); });
}

void QuillmarASAAttribution::enableASAAttributionTracking() noexcept {
  guarded("enableASAAttributionTracking", [this] { core_->enableASAAttributionTracking(); });
}

void QuillmarASAAttribution::disableASAAttributionTracking() noexcept {
  guarded("disableASAAttributionTracking", [this] { core_->disableASAAttributionTracking(); });
}

void QuillmarASAAttribution::setNetworkPaused(bool paused) noexcept {
  guarded("setNetworkPaused", [&] { core_->setNetworkPaused(paused); });
}

bool QuillmarASAAttribution::drain(std::chrono::milliseconds timeout) noexcept {
  return guarded("drain", false, [&] { return core_->drain(timeout); });
}

QuillmarASAAttributionHealth QuillmarASAAttribution::health() const noexcept {
  return guarded("health", QuillmarASAAttributionHealth(), [this] { return core_->health(); });
}

QuillmarASAAttributionStatistics QuillmarASAAttribution::statistics() const noexcept {
  return guarded("statistics", QuillmarASAAttributionStatistics(), [this] { return core_->statistics(); });
}

}  // namespace quillmar
