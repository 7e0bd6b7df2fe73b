#include "quillmar/simulated/SimulatedAdNetwork.h"

#include <utility>

#include "Platform/SystemVersion.h"

namespace quillmar::simulated {

namespace {

/// High, medium and low are declared in this order in both frameworks.
template <class Coarse>
std::string coarseName(Coarse value) {
  switch (value) {
    case Coarse::high:
      return "high";
    case Coarse::medium:
      return "medium";
    default:
      return "low";
  }
}

}  // namespace

SimulatedDevice::SimulatedDevice(std::string systemVersion) : systemVersion_(std::move(systemVersion)) {}

std::string SimulatedDevice::systemVersion() const {
  const std::lock_guard lock(mutex_);
  return systemVersion_;
}

void SimulatedDevice::setSystemVersion(std::string systemVersion) {
  const std::lock_guard lock(mutex_);
  systemVersion_ = std::move(systemVersion);
}

SimulatedAdNetwork::SimulatedAdNetwork(std::shared_ptr<platform::Clock> clock, std::shared_ptr<platform::Device> device)
    : clock_(std::move(clock)),
      device_(std::move(device)),
      rules_(adReachedOn(device_->systemVersion()), clock_->now()) {}

void SimulatedAdNetwork::registerAppForAdNetworkAttribution() {
  record({"registration", std::nullopt, std::nullopt, std::nullopt, clock_->now()}, nullptr);
}

void SimulatedAdNetwork::updateConversionValue(int fineValue) {
  record({"skAdNetwork2", fineValue, std::nullopt, std::nullopt, clock_->now()}, nullptr);
}

void SimulatedAdNetwork::updatePostbackConversionValue(int fineValue, platform::AdNetworkCompletion completion) {
  // The operation is the same on both; the system's version tells which generation of the ad network answers it.
  const bool isFourth = isVersionAtLeast(device_->systemVersion(), "16.1");
  record(
      {isFourth ? "skAdNetwork4WithoutCoarse" : "skAdNetwork3", fineValue, std::nullopt, std::nullopt, clock_->now()},
      completion);
}

void SimulatedAdNetwork::updatePostbackConversionValue(int fineValue,
                                                       platform::SKAdNetworkCoarseConversionValue coarseValue,
                                                       bool lockWindow, platform::AdNetworkCompletion completion) {
  record({"skAdNetwork4", fineValue, coarseName(coarseValue), lockWindow, clock_->now()}, completion);
}

void SimulatedAdNetwork::updateConversionValue(const platform::PostbackUpdate& update,
                                               platform::AdNetworkCompletion completion) {
  std::optional<std::string> coarse;
  if (update.coarseConversionValue) {
    coarse = coarseName(*update.coarseConversionValue);
  }
  record({"adAttributionKit", update.fineConversionValue, std::move(coarse), update.lockPostback, clock_->now()},
         completion);
}

void SimulatedAdNetwork::setRules(PostbackRules rules) {
  const std::lock_guard lock(mutex_);
  rules_ = std::move(rules);
}

PostbackRules SimulatedAdNetwork::rules() const {
  const std::lock_guard lock(mutex_);
  return rules_;
}

void SimulatedAdNetwork::setObserver(std::function<void(const PlatformCall&)> observer) {
  const std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

void SimulatedAdNetwork::setError(std::optional<std::string> localizedDescription) {
  const std::lock_guard lock(mutex_);
  error_ = std::move(localizedDescription);
}

std::vector<PlatformCall> SimulatedAdNetwork::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

void SimulatedAdNetwork::record(PlatformCall call, const platform::AdNetworkCompletion& completion) {
  std::function<void(const PlatformCall&)> observer;
  std::optional<platform::PlatformError> error;
  const std::string systemVersion = device_->systemVersion();
  {
    const std::lock_guard lock(mutex_);
    if (error_) {
      error = platform::PlatformError{*error_};
      call.verdict = {Verdict::Outcome::refused, Verdict::Reason::platformError, rules_.windowAt(call.at)};
    } else {
      call.verdict = rules_.judge(call, systemVersion);
      if (call.verdict.outcome == Verdict::Outcome::refused) {
        error = platform::PlatformError{std::string(description(call.verdict.reason))};
      }
    }
    calls_.push_back(call);
    observer = observer_;
  }
  if (observer) {
    observer(call);
  }
  if (completion) {
    completion(std::move(error));
  }
}

}  // namespace quillmar::simulated
