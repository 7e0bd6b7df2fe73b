import CQuillmar

/// How much the library takes on. 0 is no bound, as usual; what is dropped is counted in `QuillmarHealth` by its cause.
public struct QuillmarLimits: Equatable, Sendable {
  /// Which event goes when one more than the bound comes.
  public enum Drop: Int32, Sendable {
    case oldest, newest
  }

  /// How many events may wait for the configuration, in memory.
  public var parkedEvents: UInt64 = 0

  /// How many events may wait for their turn, in memory; with `reliableDelivery` for the disk.
  public var queuedEvents: UInt64 = 0

  /// For the two above.
  public var drop = Drop.oldest

  /// `configure` forgets events of the history that are older than so many days. 36 are all that can matter to a
  /// conversion value.
  public var historyDays: UInt16 = 0

  /// The largest event, in bytes: its name and its parameters as JSON. A larger one is refused.
  public var eventBytes: UInt64 = 0

  public init() {}
}

/// What goes beyond the library's usual behaviour. All of it is off at first.
public struct QuillmarOptions: Equatable, Sendable {
  /// Keeps each event, and each purchase, on disk until the service has accepted it, over restarts too. What fails for a
  /// reason that passes is sent again, under the same identifier. An event counts for the conversion value when it
  /// happened, whether the service can be reached or not.
  public var reliableDelivery = false

  /// Takes the search-ads attribution as its service gives it: identifiers that are integers are kept as their digits, a
  /// record that is not ready yet is asked for again after 5 seconds, three times, and what fails for a reason that
  /// passes after a minute, ten minutes and an hour. A stored record that cannot be read is fetched again.
  public var liveAttribution = false

  /// From iOS 18 on, tells each conversion value to SKAdNetwork as well, right after AdAttributionKit: an install by an
  /// ad that was signed for SKAdNetwork gets its value only so.
  public var updateBothNetworks = false

  /// Lets the service's switch stop everything, not only new events: events that are parked or on their way, calls of the
  /// platform, locks, and the fetch of the attribution.
  public var strictSwitch = false

  /// Goes on with the configuration of the last run until this run has fetched one. Best with `reliableDelivery`: events
  /// whose logs fail, ten in a row, invalidate the key without it.
  public var useStoredConfiguration = false

  /// Says in the header "User-Agent" of requests to the event service who asks: name and version of the app's bundle, and
  /// of the library. The attribution service is not told.
  public var sendUserAgent = false

  /// Of a rule with one complete half, sends, ranks and locks by that half only.
  public var onlyCompleteHalves = false

  /// Lets a single revenue bound of a rule count. An event without a revenue does not meet it.
  public var honourSingleBounds = false

  /// Sends no value that ranks below the last one of the same window.
  public var neverSendLower = false

  /// Lets rules count the events of the current window only.
  public var currentWindowOnly = false

  /// Sends no update that repeats fine and coarse value of the last one of the same window, unless it locks.
  public var skipRepeatedUpdates = false

  /// Sends no lock for a window that is locked.
  public var skipRepeatedLocks = false

  /// Stores nothing, sends nothing and asks the platform nothing before `Quillmar.grantConsent()`. Give it to `Quillmar`
  /// and `QuillmarASAAttribution` before anything else is called.
  public var requireConsent = false

  /// So many events that come before consent are held, in memory, and count when it is granted. Others are dropped.
  public var eventsHeldForConsent = 0

  /// Chooses the window as the platform does, by the hours since the first run: 48, 168 and 840.
  public var platformWindows = false

  /// Bounds of what the library holds.
  public var limits = QuillmarLimits()

  public init() {}

  var forC: quillmar_options {
    var options = quillmar_options()
    options.size = MemoryLayout.size(ofValue: options)
    options.reliable_delivery = reliableDelivery
    options.live_attribution = liveAttribution
    options.update_both_networks = updateBothNetworks
    options.strict_switch = strictSwitch
    options.use_stored_configuration = useStoredConfiguration
    options.only_complete_halves = onlyCompleteHalves
    options.honour_single_bounds = honourSingleBounds
    options.never_send_lower = neverSendLower
    options.current_window_only = currentWindowOnly
    options.skip_repeated_updates = skipRepeatedUpdates
    options.skip_repeated_locks = skipRepeatedLocks
    options.platform_windows = platformWindows
    options.require_consent = requireConsent
    options.events_held_for_consent = max(eventsHeldForConsent, 0)
    options.max_parked_events = limits.parkedEvents
    options.max_queued_events = limits.queuedEvents
    options.max_event_bytes = limits.eventBytes
    options.history_days = Int32(limits.historyDays)
    options.drop = limits.drop.rawValue
    options.send_user_agent = sendUserAgent
    return options
  }
}
