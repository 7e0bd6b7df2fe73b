#include "quillmar/simulated/PostbackRules.h"

#include <algorithm>
#include <utility>

#include "Platform/SystemVersion.h"

namespace quillmar::simulated {

namespace {

using namespace std::chrono_literals;
using Outcome = Verdict::Outcome;
using Reason = Verdict::Reason;

constexpr int highestFineValue = 63;
constexpr std::chrono::hours timerLength{24};
constexpr std::chrono::hours firstUpdateWithin{60 * 24};

struct Delay {
  std::chrono::hours least;
  std::chrono::hours most;
};
constexpr Delay delayAfterTimer{0h, 24h};
constexpr Delay delayOfFirst{24h, 48h};
constexpr Delay delayOfLater{24h, 144h};

struct Interface {
  std::string_view name;
  std::string_view firstSystem;
};
constexpr std::string_view kit = "adAttributionKit";
constexpr Interface interfaces[] = {
    {kit, "18.0"},
    {"skAdNetwork4", "16.1"},
    {"skAdNetwork4WithoutCoarse", "15.4"},
    {"skAdNetwork3", "15.4"},
    {"skAdNetwork2", "14.0"},
    {"registration", "11.3"},
};

bool hasInterface(std::string_view systemVersion, std::string_view name) {
  const auto* const found = std::ranges::find(interfaces, name, &Interface::name);
  return found != std::end(interfaces) && isVersionAtLeast(systemVersion, found->firstSystem);
}

struct ReasonText {
  std::string_view name;
  std::string_view description;
};

/// In the order of the enumeration.
constexpr ReasonText reasonTexts[] = {
    {"", ""},
    {"valueOutOfRange", "a fine value is 0 to 63"},
    {"interfaceMissing", "this system has no such interface"},
    {"platformError", "the platform failed"},
    {"otherFramework", "the ad was signed for the other framework"},
    {"noValue", "registering carries no value"},
    {"windowLocked", "the window is locked"},
    {"windowsOver", "the last window has ended"},
    {"firstUpdateLate", "the first update came after 60 days"},
    {"coarseHalfOnly", "only a coarse value counts here"},
    {"fineHalfOnly", "only the fine value counts"},
    {"timerOver", "the timer has ended"},
    {"notGreater", "not greater than the value before"},
};

/// The fine value begins at tier 2, the coarse one before.
void addTiers(std::vector<Postback>& postbacks, Postback postback, int lowestTier) {
  const Postback whole = std::move(postback);
  for (int tier = lowestTier; tier <= 3; ++tier) {
    Postback& added = postbacks.emplace_back(whole);
    added.tier = tier;
    if (tier < 2) {
      added.fineValue.reset();
    }
    if (tier < 1 || added.fineValue) {
      added.coarseValue.reset();
    }
  }
}

}  // namespace

PostbackRules::PostbackRules(SignedAd ad, platform::Clock::TimePoint firstLaunch, WindowLengths lengths)
    : ad_(ad), firstLaunch_(firstLaunch), lengths_(lengths) {}

Verdict PostbackRules::judge(const PlatformCall& call, std::string_view systemVersion) {
  Verdict verdict;
  if (!hasInterface(systemVersion, call.interface)) {
    verdict = {Outcome::refused, Reason::interfaceMissing};
  } else if (call.fineValue && (*call.fineValue < 0 || *call.fineValue > highestFineValue)) {
    verdict = {Outcome::refused, Reason::valueOutOfRange};
  } else if ((call.interface == kit) != (ad_ == SignedAd::adAttributionKit)) {
    verdict = {Outcome::ignored, Reason::otherFramework};
  } else {
    const Time at = call.at - firstLaunch_;
    verdict = ad_ == SignedAd::skAdNetwork3 ? judgeByTimer(call, at) : judgeByWindow(call, at);
  }
  verdict.window = windowAt(call.at);
  return verdict;
}

// Registering is a call like the others here, but without a value: it starts the timer.
Verdict PostbackRules::judgeByTimer(const PlatformCall& call, Time at) {
  State& life = windows_[0];
  if (timerEnd_ && at >= *timerEnd_) {
    return {Outcome::ignored, Reason::timerOver};
  }
  if (timerEnd_ && call.fineValue <= life.fineValue) {
    return {Outcome::ignored, Reason::notGreater};
  }
  life.updated = true;
  life.fineValue = call.fineValue;
  timerEnd_ = at + timerLength;
  const bool hasMore = call.coarseValue || call.lockWindow.value_or(false);
  return {Outcome::accepted, hasMore ? Reason::fineHalfOnly : Reason::none};
}

Verdict PostbackRules::judgeByWindow(const PlatformCall& call, Time at) {
  const std::optional<int> window = windowAt(call.at);
  if (!window) {
    return {Outcome::ignored, Reason::windowsOver};
  }
  if (!call.fineValue) {
    return {Outcome::ignored, Reason::noValue};
  }
  if (at > firstUpdateWithin && std::ranges::none_of(windows_, &State::updated)) {
    return {Outcome::ignored, Reason::firstUpdateLate};
  }
  State& state = windows_[static_cast<std::size_t>(*window)];
  if (state.lockedAt) {
    return {Outcome::ignored, Reason::windowLocked};
  }
  const bool locks = call.lockWindow.value_or(false);
  const bool isFirst = *window == 0;
  if (!isFirst && !call.coarseValue && !locks) {
    return {Outcome::ignored, Reason::coarseHalfOnly};
  }
  if (isFirst || call.coarseValue) {  // else it locks what was there before, if anything was
    state.updated = true;
    state.fineValue = isFirst ? call.fineValue : std::nullopt;
    state.coarseValue = call.coarseValue;
  }
  if (locks) {
    state.lockedAt = at;
  }
  return {Outcome::accepted, isFirst ? Reason::none : Reason::coarseHalfOnly};
}

std::optional<int> PostbackRules::windowAt(platform::Clock::TimePoint instant) const {
  if (ad_ == SignedAd::skAdNetwork3) {
    return std::nullopt;
  }
  for (std::size_t window = 0; window < lengths_.size(); ++window) {
    if (instant - firstLaunch_ < endOf(window)) {
      return static_cast<int>(window);
    }
  }
  return std::nullopt;
}

PostbackRules::Time PostbackRules::endOf(std::size_t window) const {
  Time end{0};
  for (std::size_t index = 0; index <= window; ++index) {
    end += lengths_[index];
  }
  return end;
}

std::vector<Postback> PostbackRules::postbacks() const {
  std::vector<Postback> postbacks;
  for (std::size_t window = 0; window < windows_.size(); ++window) {
    const State& state = windows_[window];
    if (!state.updated) {
      continue;
    }
    Postback postback;
    postback.index = static_cast<int>(window);
    postback.fineValue = state.fineValue;
    postback.coarseValue = state.coarseValue;
    Delay delay = window == 0 ? delayOfFirst : delayOfLater;
    if (timerEnd_) {
      postback.finalizedBy = Postback::FinalizedBy::timer;
      postback.finalizedAt = *timerEnd_;
      delay = delayAfterTimer;
    } else {
      postback.finalizedBy = state.lockedAt ? Postback::FinalizedBy::lock : Postback::FinalizedBy::window;
      postback.finalizedAt = state.lockedAt.value_or(endOf(window));
    }
    postback.earliest = postback.finalizedAt + delay.least;
    postback.latest = postback.finalizedAt + delay.most;
    addTiers(postbacks, std::move(postback), window == 0 ? 0 : 1);
  }
  return postbacks;
}

bool supports(std::string_view systemVersion, SignedAd ad) noexcept {
  return ad == SignedAd::skAdNetwork3 ||
         isVersionAtLeast(systemVersion, ad == SignedAd::skAdNetwork4 ? "16.1" : "17.4");
}

SignedAd adReachedOn(std::string_view systemVersion) noexcept {
  if (isVersionAtLeast(systemVersion, "18.0")) {
    return SignedAd::adAttributionKit;
  }
  return supports(systemVersion, SignedAd::skAdNetwork4) ? SignedAd::skAdNetwork4 : SignedAd::skAdNetwork3;
}

std::string_view rawValue(SignedAd ad) noexcept {
  switch (ad) {
    case SignedAd::skAdNetwork3:
      return "skan3";
    case SignedAd::skAdNetwork4:
      return "skan4";
    default:
      return "aak";
  }
}

std::string_view rawValue(Verdict::Outcome outcome) noexcept {
  switch (outcome) {
    case Outcome::accepted:
      return "accepted";
    case Outcome::refused:
      return "refused";
    default:
      return "ignored";
  }
}

std::string_view rawValue(Verdict::Reason reason) noexcept {
  return reasonTexts[static_cast<std::size_t>(reason)].name;
}

std::string_view rawValue(Postback::FinalizedBy finalizedBy) noexcept {
  switch (finalizedBy) {
    case Postback::FinalizedBy::lock:
      return "lock";
    case Postback::FinalizedBy::window:
      return "window";
    default:
      return "timer";
  }
}

std::string_view description(Verdict::Reason reason) noexcept {
  return reasonTexts[static_cast<std::size_t>(reason)].description;
}

}  // namespace quillmar::simulated
