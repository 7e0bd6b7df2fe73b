import CQuillmar
import Foundation

/// Reports app events to the event service and keeps the platform's conversion value up to date.
///
/// Call `configure` once at start-up and `sendEvent` for each event. What happens is told in the log only. All members
/// may be used from any thread, and none but `reset`, `clearTrackedEvents`, `drain`, `waitUntilDelivered` and `state`
/// waits for a disk or a network.
public final class Quillmar: Sendable {
  private static let sharedInstance = SharedInstance(
    make: { Quillmar(quillmar_shared()) },
    tell: { quillmar_set_shared($0?.handle.pointer) })

  /// The instance of the app, over the shared platform; see `QuillmarPlatform.useForSharedInstances`. Another one can be
  /// put in its place.
  public static var shared: Quillmar {
    get { sharedInstance.instance }
    set { sharedInstance.set(newValue) }
  }

  /// Lets the next use of `shared` make a new instance.
  public static func resetShared() {
    sharedInstance.set(nil)
  }

  let handle: Handle

  /// Takes a handle over.
  init(_ pointer: OpaquePointer?) {
    handle = Handle(pointer)
  }

  deinit {
    quillmar_release(handle.pointer)
  }

  /// Copied into the log's threshold by the next `configure`; off at first.
  public var logLevel: LogLevel {
    get { LogLevel(rawValue: quillmar_get_log_level(handle.pointer)) ?? .off }
    set { quillmar_set_log_level(handle.pointer, newValue.rawValue) }
  }

  /// Chooses what goes beyond the usual behaviour. Before the first event and `configure`.
  public func setOptions(_ options: QuillmarOptions) {
    var options = options.forC
    quillmar_set_options(handle.pointer, &options)
  }

  /// Starts the library with the key that the event service knows the app by. Returns at once.
  ///
  /// On the first run the install identifier and the date are recorded. When the first run lies more than 37 days back,
  /// the library stays off. May be called again, with another key too.
  public func configure(_ verificationKey: String) {
    quillmar_configure(handle.pointer, verificationKey)
  }

  /// Reports an event. Returns at once; the event is handled in the background, in the order of the calls. One that
  /// comes before the configuration has been fetched waits for it, in memory.
  public func sendEvent(event: String, params: [ASEventParam: any EventValue]? = nil) {
    var copies: [UnsafeMutablePointer<CChar>?] = []
    defer { copies.forEach { free($0) } }
    func copied(_ text: String) -> UnsafePointer<CChar>? {
      copies.append(strdup(text))
      return UnsafePointer(copies.last ?? nil)
    }
    let parameters = (params ?? [:]).map { name, value in
      var parameter = quillmar_parameter()
      parameter.name = copied(name.key)
      switch value.parameterValue {
      case .boolean(let value):
        parameter.type = quillmar_value_type(QUILLMAR_VALUE_BOOLEAN)
        parameter.value.boolean = value
      case .integer(let value):
        parameter.type = quillmar_value_type(QUILLMAR_VALUE_INTEGER)
        parameter.value.integer = value
      case .number(let value):
        parameter.type = quillmar_value_type(QUILLMAR_VALUE_NUMBER)
        parameter.value.number = value
      case .text(let value):
        parameter.type = quillmar_value_type(QUILLMAR_VALUE_TEXT)
        parameter.value.text = copied(value)
      }
      return parameter
    }
    quillmar_send_event(handle.pointer, event, parameters, parameters.count)
  }

  /// For apps that deliver activations themselves: fetches the configuration again if it is an hour old.
  public func applicationDidBecomeActive() {
    quillmar_application_did_become_active(handle.pointer)
  }

  /// Likewise.
  public func sceneDidActivate() {
    quillmar_scene_did_activate(handle.pointer)
  }

  /// The user agrees, as `QuillmarOptions.requireConsent` wants it: what was called before begins now. Nothing about it
  /// is stored: call it at each start, or `revokeConsent()`.
  public func grantConsent() {
    quillmar_grant_consent(handle.pointer)
  }

  /// The user does not agree, or no longer: everything stops, and everything that is stored is erased, on the calling
  /// thread. Then nothing works until `grantConsent()`, after which `configure(_:)` begins a new install.
  public func revokeConsent() {
    quillmar_revoke_consent(handle.pointer)
  }

  /// Back to the unconfigured state. The first-run date and the install identifier are kept; what the service sent and
  /// the tracked events are forgotten. Whatever was begun before ends without effect. Writes on the calling thread.
  public func reset() {
    quillmar_reset(handle.pointer)
  }

  /// Forgets the tracked events. Writes on the calling thread.
  public func clearTrackedEvents() {
    quillmar_clear_tracked_events(handle.pointer)
  }

  /// The key of the last `configure`; empty before.
  public var quillmarVerificationKey: String {
    text { quillmar_copy_verification_key(handle.pointer, $0, $1) }
  }

  /// True once `configure` has found the first run recent enough.
  public var isInitialized: Bool { cState.initialized }

  /// True once a fetch of the conversion values has succeeded, or is under way, in this process.
  /// Set to false, it lets the next activation fetch them at once.
  public var hasFetchedConversionValues: Bool {
    get { cState.has_fetched_conversion_values }
    set { quillmar_set_has_fetched_conversion_values(handle.pointer, newValue) }
  }

  /// Where the instance stands. May open the settings on the calling thread.
  public var state: QuillmarState {
    let state = cState
    let appId = text { quillmar_copy_app_id(handle.pointer, $0, $1) }
    return QuillmarState(
      window: state.window < 0 ? nil : Int(state.window), appId: appId.isEmpty ? nil : appId,
      isInitialized: state.initialized, hasFetchedConversionValues: state.has_fetched_conversion_values,
      isEnabled: state.enabled, isVerificationKeyValid: state.verification_key_valid)
  }

  private var cState: quillmar_state {
    var state = quillmar_state()
    state.size = MemoryLayout.size(ofValue: state)
    quillmar_get_state(handle.pointer, &state)
    return state
  }

  /// How many events went which way since the instance was made.
  public var statistics: QuillmarStatistics {
    var counts = quillmar_statistics()
    counts.size = MemoryLayout.size(ofValue: counts)
    quillmar_get_statistics(handle.pointer, &counts)
    return QuillmarStatistics(
      sent: counts.sent, dropped: counts.dropped, parked: counts.parked, logged: counts.logged, failed: counts.failed)
  }

  /// Where each event is, and what is wrong. May open the settings on the calling thread.
  public var health: QuillmarHealth {
    var health = quillmar_health()
    health.size = MemoryLayout.size(ofValue: health)
    quillmar_get_health(handle.pointer, &health)
    return QuillmarHealth(health) { part in
      text { quillmar_copy_health_text(handle.pointer, quillmar_health_text(part), $0, $1) }
    }
  }

  /// Observes the health from now on; nil: nobody does. Called in the background, a tenth of a second after the first of
  /// the changes that it is told of, once for all until then.
  public func setHealthObserver(_ observer: (@Sendable (QuillmarHealth) -> Void)?) {
    guard let observer else {
      quillmar_set_health_observer(handle.pointer, nil)
      return
    }
    register(HealthWatch(self, observer)) { context in
      var table = quillmar_health_observer()
      table.size = MemoryLayout.size(ofValue: table)
      table.context = context
      table.release = releaseContext
      table.changed = { pointer, _ in
        guard let watch = object(at: pointer, as: HealthWatch.self), let quillmar = watch.quillmar else { return }
        watch.observer(quillmar.health)
      }
      return quillmar_set_health_observer(handle.pointer, &table)
    }
  }

  /// While `paused`, no request is begun: for a network that is constrained, or that the user wants left alone. What is
  /// under way goes on; what would be sent is held back, without a time-out and without counting as failed. `drain` and
  /// `waitUntilDelivered` wait for it, too, until their time is over.
  public func setNetworkPaused(_ paused: Bool) {
    quillmar_set_network_paused(handle.pointer, paused)
  }

  /// Waits until the service has accepted every event sent so far, for at most `timeout` seconds. True when it has;
  /// false also as soon as waiting cannot help. Not for the main thread of an app.
  public func waitUntilDelivered(timeout: TimeInterval) -> Bool {
    quillmar_wait_until_delivered(handle.pointer, milliseconds(timeout))
  }

  /// Waits until nothing of this instance is in flight, for at most `timeout` seconds; true when nothing is. That says
  /// nothing about success. For tests, and not on the main thread: the ad networks are called there.
  public func drain(timeout: TimeInterval) -> Bool {
    quillmar_drain(handle.pointer, milliseconds(timeout))
  }

  /// The lines of the log from now on, of all instances, the newest 1000 of those that were not yet read. In debug
  /// builds only: in others the stream ends at once.
  public static var logLines: AsyncStream<LogLine> { LogLines.shared.stream() }

  /// Answers every request with a built-in document, and configures on the calling thread. Set it before `configure`.
  public static var useMock: Bool {
    get { quillmar_get_use_mock() }
    set { quillmar_set_use_mock(newValue) }
  }

  /// Failures in a row to log an event, over all instances. At `maxConsecutiveFailures` the key counts as invalid.
  public static var consecutiveAPIFailures: Int64 {
    get { quillmar_get_consecutive_api_failures() }
    set { quillmar_set_consecutive_api_failures(newValue) }
  }

  /// So many failures in a row make the key count as invalid.
  public static let maxConsecutiveFailures: Int64 = 10

  /// While true, no event is processed.
  public static var isVerificationKeyInvalid: Bool {
    get { quillmar_get_verification_key_invalid() }
    set { quillmar_set_verification_key_invalid(newValue) }
  }

  /// Sets the counters of failures back; `useMock` stays as it is.
  public static func resetStaticState() {
    quillmar_reset_static_state()
  }

  /// The version of the library, such as "2.0.0".
  public static var version: String { String(cString: quillmar_version()) }
}

/// What an observer of the health is registered with: the instance, weakly, since it holds the observer.
private final class HealthWatch: @unchecked Sendable {
  weak var quillmar: Quillmar?
  let observer: @Sendable (QuillmarHealth) -> Void

  init(_ quillmar: Quillmar, _ observer: @escaping @Sendable (QuillmarHealth) -> Void) {
    self.quillmar = quillmar
    self.observer = observer
  }
}
