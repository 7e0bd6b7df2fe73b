#pragma once

#include <cstddef>
#include <cstdint>

namespace quillmar {

/// How much the library takes on. 0 is no bound, as usual; what is dropped is counted in `QuillmarHealth` by its cause,
/// and said once a burst in the log, at the level error.
///
/// The largest answer of a service has its bound in `platform::DefaultPlatformOptions::maxAnswerBytes`.
struct QuillmarLimits {
  /// Which event goes when one more than the bound comes.
  enum class Drop : std::uint8_t { oldest, newest };

  /// How many events may be parked: wait for the configuration, in memory.
  std::size_t parkedEvents = 0;

  /// How many events may wait for their turn, in memory, behind the 64 that are on their way; with `reliableDelivery`
  /// for the disk. Events that are parked no longer do not count.
  std::size_t queuedEvents = 0;

  /// For the two above. With `reliableDelivery`, events that are being written stay: the bound then holds for those
  /// behind them.
  Drop drop = Drop::oldest;

  /// `configure` forgets events of the history that are older than so many days, in one step: a kill leaves the old
  /// history or the new. 36 are all that can matter to a conversion value; with fewer, rules do without what was
  /// forgotten. Costs the reading of the whole history when there is something to forget.
  int historyDays = 0;

  /// The largest event, in bytes: its name and its parameters as JSON. A larger one is refused when it is sent. A
  /// request has the name, and some 200 bytes of identifiers.
  std::size_t eventBytes = 0;
};

/// What goes beyond the library's usual behaviour. All of it is off at first.
struct QuillmarOptions {
  /// Keeps each event, and each purchase, on disk until the service has accepted it, over restarts too. What fails for
  /// a reason that passes is sent again, under the same identifier ("event_id"). An event counts for the conversion
  /// value when it happened, whether the service can be reached or not.
  ///
  /// One instance over a settings store can do it; others over that store say in the log that they do not.
  ///
  /// At most some 131,000 events wait, for at most 36 days; then the oldest go. An answer that a kill loses means that
  /// the service gets the event twice, with one identifier.
  bool reliableDelivery = false;

  /// Takes the search-ads attribution as its service gives it. Identifiers that are integers are kept as their digits.
  /// The file is replaced in one step, and one that cannot be read is fetched again.
  ///
  /// A record that is not ready yet (404) is asked for again after 5 seconds, three times. After a failure that passes
  /// (5xx, 408, 425, 429, no network, no token) it is asked for again after a minute, ten minutes and an hour, or when
  /// "Retry-After" says so, after a day at most. Each attempt asks the platform for a token. What is still to come ends
  /// with the process, and when tracking is disabled or enabled again.
  bool liveAttribution = false;

  /// From system 18.0 on, tells each conversion value to SKAdNetwork as well, right after AdAttributionKit: an install
  /// by an ad that was signed for SKAdNetwork gets its value only so. The value counts as the last one as soon as one
  /// of the two has taken it; the log has both answers. An update costs two calls of the platform.
  bool updateBothNetworks = false;

  /// Lets the service's switch stop everything, not only new events: events that are parked or on their way, calls of
  /// the platform, locks, and the fetch of the attribution. An event that had not been sent to the service yet counts
  /// as dropped. Events in the outbox wait there until the service switches the library on again. What was handed to
  /// the network or to the platform is not called back.
  bool strictSwitch = false;

  /// Goes on with the configuration of the last run until this run has fetched one. The events of an app that starts
  /// without a network are not parked then, and not lost with the process. They are decided by rules that may be old,
  /// and their logs fail: ten in a row invalidate the key unless `reliableDelivery` is on. A lock by time still waits
  /// for a fetch.
  bool useStoredConfiguration = false;

  /// Says in the header "User-Agent" of requests to the event service who asks: "app/1.0 quillmar/2.0.0", with name and
  /// version of the host's `platform::Bundle`. What a product's name may not hold is percent-escaped. The attribution
  /// service, which is another party's, is not told.
  bool sendUserAgent = false;

  // What follows is about conversion values.

  /// Of a rule with one complete half, sends, ranks and locks by that half only. The other half comes from the last
  /// update, as for rules that leave a half out.
  bool onlyCompleteHalves = false;

  /// Lets a single bound count: with `revenueMin` alone, an event needs that revenue or more, with `revenueMax` alone
  /// that or less. An event without a revenue then meets neither.
  bool honourSingleBounds = false;

  /// Sends no value that ranks below the last one of the same window.
  bool neverSendLower = false;

  /// Lets rules count the events of the current window only, by their time in the history: when they were tracked, or
  /// with `reliableDelivery` when they happened.
  bool currentWindowOnly = false;

  /// Sends no update that repeats fine and coarse value of the last one of the same window, unless it locks.
  bool skipRepeatedUpdates = false;

  /// Sends no lock for a window that is locked: neither the lock by time, which comes with each fetch, nor a value that
  /// locks.
  bool skipRepeatedLocks = false;

  /// Chooses the window as the platform does, by the hours since the first run: 48, 168 and 840 in place of 3, 8 and 36
  /// local days. Locks by time count from there. How long the library starts at all does not change.
  bool platformWindows = false;

  // Consent.

  /// Stores nothing, sends nothing and asks the platform nothing before `Quillmar::grantConsent` is called, not even
  /// whether something is stored. Give it to `Quillmar` and `QuillmarASAAttribution` before anything else is called: it
  /// holds for all instances over a settings store, until the process ends. `configure` and the tracking of the
  /// attribution begin when consent is granted.
  bool requireConsent = false;

  /// So many events that come before consent are held, in memory, and count when it is granted. Others are dropped.
  std::size_t eventsHeldForConsent = 0;
  /// Bounds of what the library holds.
  QuillmarLimits limits = {};
};

}  // namespace quillmar
