/// Where an instance stands.
public struct QuillmarState: Equatable, Sendable {
  /// The current postback window, 0...2. Nil when the event window has expired.
  public var window: Int?
  /// The app's identifier as the service confirmed it. Nil before the first configuration.
  public var appId: String?
  /// True once `configure` has found the first run recent enough.
  public var isInitialized: Bool
  /// True once a fetch of the conversion values has succeeded, or is under way, in this process.
  public var hasFetchedConversionValues: Bool
  /// The service's switch.
  public var isEnabled: Bool
  /// False after too many failures in a row.
  public var isVerificationKeyValid: Bool
}

/// How many events went which way since the instance was made.
public struct QuillmarStatistics: Equatable, Sendable {
  /// Calls of `sendEvent`.
  public var sent: UInt64
  /// Refused because the service switched the library off, or memory ran out.
  public var dropped: UInt64
  /// Waiting for the configuration right now.
  public var parked: UInt64
  /// Accepted by the event service.
  public var logged: UInt64
  /// Could not be logged to the event service.
  public var failed: UInt64
}

/// How many subscription updates went which way since the instance was made. Each update that came while the instance
/// listened is in exactly one count.
public struct QuillmarASAAttributionStatistics: Equatable, Sendable {
  /// Accepted by the event service.
  public var sent: UInt64
  /// Could not be sent, and are lost.
  public var failed: UInt64
  /// Dropped because the platform's signature did not hold.
  public var unverified: UInt64
  /// Not sent because the service switched the library off.
  public var skipped: UInt64
  /// Still waiting for their turn when the listening ended.
  public var dropped: UInt64
}
