import CQuillmar
import Foundation

/// How an event ended, as far as the service is concerned.
public enum EventEnd: String, CaseIterable, Sendable {
  /// The service has accepted it.
  case logged
  /// The service did not accept it, and it is not sent again.
  case failed
  /// It went on without its log.
  case notAsked
  /// The service has switched the library off.
  case switchedOff
  /// `QuillmarOptions.requireConsent`.
  case noConsent
  /// The verification key counts as invalid.
  case keyInvalid
  /// A reset overtook it.
  case reset
  /// Memory ran out, or an adapter of the app dropped it.
  case lost
  /// With `reliableDelivery`: the service refused it for good.
  case refused
  /// With `reliableDelivery`: it waited for 36 days.
  case expired
  /// With `reliableDelivery`: too many waited on disk.
  case displaced
  /// `QuillmarLimits.parkedEvents`.
  case parkedLimit
  /// `QuillmarLimits.queuedEvents`.
  case queuedLimit
  /// `QuillmarLimits.eventBytes`.
  case tooLarge
}

/// Where each event of an instance is, and what is wrong. Each event is in exactly one count of `queued`, `underWay`,
/// `parked`, `kept` and `ended`; their sum is `sent` + `inherited`.
public struct QuillmarHealth: Equatable, Sendable {
  /// An event that the service has accepted.
  public struct LoggedEvent: Equatable, Sendable {
    public var name: String
    /// In seconds since 1970.
    public var at: TimeInterval
  }

  /// A call of SKAdNetwork or AdAttributionKit.
  public struct PlatformCall: Equatable, Sendable {
    public var interface: String
    /// In seconds since 1970.
    public var at: TimeInterval
    /// Nil as long as there is no answer.
    public var succeeded: Bool?
    /// The platform's words for a failure.
    public var error: String
  }

  /// Seconds since the last good fetch of the configuration. Nil before the first.
  public var configurationAge: TimeInterval?
  /// Why the last attempt to fetch it failed. Nil when it succeeded, or there was none.
  public var fetchError: String?
  /// False after too many failures in a row.
  public var isVerificationKeyValid: Bool
  /// Over all instances.
  public var failuresInARow: Int64
  /// Calls of `sendEvent`.
  public var sent: UInt64
  /// Events that earlier runs left in the outbox, and that have ended in this one.
  public var inherited: UInt64
  /// They wait for their turn.
  public var queued: UInt64
  /// They are on their way to the service.
  public var underWay: UInt64
  /// They wait for the configuration.
  public var parked: UInt64
  /// They are in the outbox.
  public var kept: UInt64
  /// What has ended.
  public var ended: [EventEnd: UInt64]
  /// In the outbox, those of earlier runs included.
  public var unsent: UInt64
  public var lastLogged: LoggedEvent?
  public var lastPlatformCall: PlatformCall?

  init(_ health: quillmar_health, text: (Int) -> String) {
    configurationAge = health.configuration_age_seconds < 0 ? nil : TimeInterval(health.configuration_age_seconds)
    let error = text(QUILLMAR_HEALTH_FETCH_ERROR)
    fetchError = error.isEmpty ? nil : error
    isVerificationKeyValid = health.verification_key_valid
    failuresInARow = health.failures_in_a_row
    sent = health.sent
    inherited = health.inherited
    queued = health.queued
    underWay = health.under_way
    parked = health.parked
    kept = health.kept
    ended = [
      .logged: health.logged, .failed: health.failed, .notAsked: health.not_asked, .switchedOff: health.switched_off,
      .noConsent: health.no_consent,
      .keyInvalid: health.key_invalid, .reset: health.reset, .lost: health.lost, .refused: health.refused,
      .expired: health.expired, .displaced: health.displaced, .parkedLimit: health.parked_limit,
      .queuedLimit: health.queued_limit, .tooLarge: health.too_large,
    ]
    unsent = health.unsent
    if health.last_logged_at > 0 {
      lastLogged = LoggedEvent(name: text(QUILLMAR_HEALTH_LOGGED_EVENT), at: health.last_logged_at)
    }
    if health.last_platform_call_at > 0 {
      let answer = health.last_platform_answer
      lastPlatformCall = PlatformCall(
        interface: text(QUILLMAR_HEALTH_PLATFORM_CALL), at: health.last_platform_call_at,
        succeeded: answer == QUILLMAR_ANSWER_NONE ? nil : answer == QUILLMAR_ANSWER_SUCCESS,
        error: text(QUILLMAR_HEALTH_PLATFORM_ERROR))
    }
  }
}

/// How the search-ads attribution is.
public enum AttributionStatus: Int32, Sendable {
  case notEnabled, noKey, switchedOff, fetching, waiting, failed, stored
}
