#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "quillmar/Export.h"
#include "quillmar/QuillmarOptions.h"
#include "quillmar/platform/Platform.h"

namespace quillmar {

class QuillmarASAAttributionCore;

/// How many subscription updates went which way, since the instance was made. Each update that came while the instance
/// listened is in exactly one count.
struct QuillmarASAAttributionStatistics {
  std::uint64_t sent = 0;        ///< accepted by the event service
  std::uint64_t failed = 0;      ///< could not be sent, and are lost
  std::uint64_t unverified = 0;  ///< dropped because the platform's signature did not hold
  std::uint64_t skipped = 0;     ///< not sent because the service switched the library off
  std::uint64_t dropped = 0;     ///< still waiting for their turn when the listening ended
  /// In the outbox right now when `QuillmarOptions::reliableDelivery` is on, those of earlier runs included, and in
  /// none of the other counts. One that the service refuses for good, or that got too old, counts as failed.
  std::uint64_t unsent = 0;
};

/// How the attribution is, for a screen or an alarm.
struct QuillmarASAAttributionHealth {
  /// What became of the record that is fetched once.
  enum class State : std::uint8_t {
    notEnabled,   ///< tracking was never enabled
    noKey,        ///< there was no verification key: see `enableASAAttributionTracking`
    switchedOff,  ///< not fetched: `QuillmarOptions::strictSwitch`
    fetching,
    waiting,  ///< an attempt failed, and another one is yet to come, unless tracking is disabled
    failed,   ///< and is tried again by the next enabling
    stored
  };

  State state = State::notEnabled;
  std::string error;       ///< why the last attempt to fetch it failed; empty when none has
  bool listening = false;  ///< for subscription updates
};

/// Fetches the search-ads attribution of the installation, once, and reports subscription purchases together with it.
///
/// Works once `Quillmar::isInitialized` is true, or was in an earlier run of the app: `configure` stores the
/// verification key in the background. No
/// function throws; what happens is told in the log only, most of it at the error level, so that it is seen whenever
/// the log is on. All functions may be called from any thread. In a forked child they do nothing, as `Quillmar`'s.
class QUILLMAR_API QuillmarASAAttribution {
 public:
  /// The instance of the process, made at the first call over `platform::sharedPlatform()`.
  static std::shared_ptr<QuillmarASAAttribution> shared() noexcept;

  /// Replaces the instance of the process; null makes the next `shared()` build a new one.
  static void setShared(std::shared_ptr<QuillmarASAAttribution> instance) noexcept;

  /// An instance of its own over the given settings store. The verification key comes from the library's own suite
  /// all the same. From now on the log goes to the platform's sink. Does no I/O. Use `QuillmarFactory` or `shared()`:
  /// the constructor throws as `Quillmar`'s does.
  QuillmarASAAttribution(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
                         const platform::Platform& platform);
  /// Ends the listening. A purchase that is being sent, and a fetch of the attribution, still finish.
  ~QuillmarASAAttribution();
  QuillmarASAAttribution(const QuillmarASAAttribution&) = delete;
  QuillmarASAAttribution& operator=(const QuillmarASAAttribution&) = delete;

  /// Chooses what goes beyond the usual behaviour. Before `enableASAAttributionTracking`.
  void setOptions(const QuillmarOptions& options) noexcept;

  /// Starts to listen for subscription updates, and fetches the attribution if it is not stored yet. Reads the
  /// settings store, and looks for the stored attribution, on the calling thread; the rest is done on the platform's
  /// executor. Enabling again starts anew, and tries again to fetch what could not be fetched; updates that wait for
  /// their turn are dropped then. With `QuillmarOptions::liveAttribution` it also tries again by itself.
  void enableASAAttributionTracking() noexcept;

  /// Ends the listening. A purchase that is being sent still finishes. What is stored is kept.
  void disableASAAttributionTracking() noexcept;

  /// While `paused`, no request for the attribution and none with a purchase is begun; see
  /// `Quillmar::setNetworkPaused`. A pause outlasts disabling and enabling. A token of the platform that is held back
  /// for more than a day is old.
  void setNetworkPaused(bool paused) noexcept;

  /// Waits until no request of this instance is in flight and each update that the platform has handed over has been
  /// dealt with, for at most `timeout`. True when all was done. Not for the main thread of an app: it is there for
  /// command-line hosts and tests.
  bool drain(std::chrono::milliseconds timeout) noexcept;

  /// The counts so far.
  QuillmarASAAttributionStatistics statistics() const noexcept;

  /// How the attribution is. Reads no disk.
  QuillmarASAAttributionHealth health() const noexcept;

 private:
  friend class QuillmarASAAttributionCore;
  std::shared_ptr<QuillmarASAAttributionCore> core_;  // null in a forked child
};

}  // namespace quillmar
