#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillmar/platform/Clock.h"

namespace quillmar::simulated {

/// How the ad was signed that led to the install. The platform's rules depend on it.
enum class SignedAd : std::uint8_t {
  skAdNetwork3,     ///< "skan3": for SKAdNetwork, version 3 or earlier
  skAdNetwork4,     ///< "skan4": for SKAdNetwork, version 4
  adAttributionKit  ///< "aak"
};

/// What the platform makes of one call, and why.
struct Verdict {
  /// What became of it.
  enum class Outcome : std::uint8_t {
    accepted,  ///< it counts
    refused,   ///< the platform answers with an error, or the system has no such interface
    ignored    ///< without effect: the platform answers with success all the same
  };

  /// Why. With an accepted call: what of it does not count.
  enum class Reason : std::uint8_t {
    none,
    valueOutOfRange,   ///< refused: a fine value is 0...63
    interfaceMissing,  ///< refused: the system is too old for it
    platformError,     ///< refused: the ad network was told to fail
    otherFramework,    ///< ignored: the ad was signed for the other framework
    noValue,           ///< ignored: registering carries no value
    windowLocked,      ///< ignored until the next window begins
    windowsOver,       ///< ignored: the last window has ended
    firstUpdateLate,   ///< ignored: the first update came more than 60 days after the install
    coarseHalfOnly,    ///< accepted, or ignored where there is no coarse half: a fine value counts in window 0 only
    fineHalfOnly,      ///< accepted: for ads of version 3 there is no coarse value and no lock
    timerOver,         ///< ignored: the value was final
    notGreater         ///< ignored: the value before was as great, or greater
  };

  Outcome outcome = Outcome::accepted;
  Reason reason = Reason::none;
  /// The platform's window that the call came in, 0...2; nothing for ads of version 3, and when the windows are over.
  std::optional<int> window = std::nullopt;
};

/// One call to the platform's ad attribution.
struct PlatformCall {
  /// "adAttributionKit", "skAdNetwork4", "skAdNetwork4WithoutCoarse", "skAdNetwork3", "skAdNetwork2" or
  /// "registration".
  std::string interface;
  // What the interface does not take is absent.
  std::optional<int> fineValue;
  std::optional<std::string> coarseValue;  ///< "high", "medium" or "low"
  std::optional<bool> lockWindow;
  platform::Clock::TimePoint at;
  Verdict verdict = {};  ///< what the platform made of it
};

/// What a postback holds if the platform assigns the install to a tier, which the app can neither choose nor see.
struct Postback {
  /// What made its value final.
  enum class FinalizedBy : std::uint8_t { lock, window, timer };

  int index = 0;  ///< 0 for the first postback; for later ones their window, 1 or 2
  int tier = 0;   ///< 0...3: the more installs an ad brings, the higher
  std::optional<int> fineValue;
  std::optional<std::string> coarseValue;  ///< "high", "medium" or "low"
  FinalizedBy finalizedBy = FinalizedBy::window;
  // All since the first launch. The platform sends the postback at random between the last two.
  std::chrono::nanoseconds finalizedAt{0};
  std::chrono::nanoseconds earliest{0};
  std::chrono::nanoseconds latest{0};
};

/// The platform's rules for one install: takes the calls of an app in the order of time, judges each, and tells which
/// postbacks the winning ad network gets. The first launch counts as the install.
///
/// The rules are those of the pages "Receiving postbacks in multiple conversion windows" (of both frameworks),
/// "updateConversionValue(_:)" and "updatePostbackConversionValue(_:coarseValue:lockWindow:completionHandler:)".
/// Windows are counted in hours since the first launch; the library counts whole local days, so the two disagree for a
/// while before the library's next window begins. Not for use from several threads at once.
class PostbackRules {
 public:
  /// How long windows 0, 1 and 2 last.
  using WindowLengths = std::array<std::chrono::hours, 3>;
  /// Two, five and 28 days.
  static constexpr WindowLengths usualLengths{std::chrono::hours(48), std::chrono::hours(120), std::chrono::hours(672)};

  /// Nothing was called yet.
  PostbackRules(SignedAd ad, platform::Clock::TimePoint firstLaunch, WindowLengths lengths = usualLengths);

  /// Judges a call on a system of this version and counts it, if it counts. What the call's own `verdict` says is not
  /// looked at.
  Verdict judge(const PlatformCall& call, std::string_view systemVersion);

  /// The window that is open at an instant; nothing when the last has ended, and for ads of version 3, which have none.
  std::optional<int> windowAt(platform::Clock::TimePoint instant) const;

  /// The postbacks, if no more calls come: one entry for each postback and tier, in this order. A tier in which a
  /// postback is not sent is left out. Ads of version 3 have no tiers, but a privacy threshold, which is put between
  /// tiers 1 and 2: there the fine value begins with version 4.
  std::vector<Postback> postbacks() const;

  /// What it was made with.
  /// @{
  SignedAd ad() const noexcept { return ad_; }
  const WindowLengths& lengths() const noexcept { return lengths_; }
  /// @}

 private:
  using Time = std::chrono::nanoseconds;  // since the first launch

  /// What a window came to, or the whole life for an ad of version 3.
  struct State {
    bool updated = false;
    std::optional<int> fineValue;
    std::optional<std::string> coarseValue;
    std::optional<Time> lockedAt;
  };

  Verdict judgeByTimer(const PlatformCall& call, Time at);
  Verdict judgeByWindow(const PlatformCall& call, Time at);
  Time endOf(std::size_t window) const;

  SignedAd ad_;
  platform::Clock::TimePoint firstLaunch_;
  WindowLengths lengths_;
  std::array<State, 3> windows_;  ///< ads of version 3 use the first
  std::optional<Time> timerEnd_;  ///< for ads of version 3
};

/// Whether systems of this version know ads that are signed so: 16.1 brought version 4, 17.4 AdAttributionKit.
bool supports(std::string_view systemVersion, SignedAd ad) noexcept;

/// The ads that the calls of the library count for on a system: AdAttributionKit's from 18.0 on, those of version 4
/// from 16.1 on, else those of version 3.
SignedAd adReachedOn(std::string_view systemVersion) noexcept;

/// The names, as they stand at the enumerators in quotes or are spelled there. `rawValue` of no reason is empty.
/// @{
std::string_view rawValue(SignedAd ad) noexcept;
std::string_view rawValue(Verdict::Outcome outcome) noexcept;
std::string_view rawValue(Verdict::Reason reason) noexcept;
std::string_view rawValue(Postback::FinalizedBy finalizedBy) noexcept;
/// @}

/// A reason in words, for example "the window is locked"; empty for none.
std::string_view description(Verdict::Reason reason) noexcept;

}  // namespace quillmar::simulated
