import CQuillmar
import Foundation

/// Fetches the search-ads attribution of the installation, once, and reports subscription purchases together with it.
///
/// Works once `Quillmar.isInitialized` is true, or was in an earlier run of the app. What happens is told in the log
/// only. All members may be used from any thread.
public final class QuillmarASAAttribution: Sendable {
  private static let sharedInstance = SharedInstance(
    make: { QuillmarASAAttribution(quillmar_attribution_shared()) },
    tell: { quillmar_attribution_set_shared($0?.handle.pointer) })

  /// The instance of the app, over the shared platform; see `QuillmarPlatform.useForSharedInstances`. Another one can be
  /// put in its place.
  public static var shared: QuillmarASAAttribution {
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
    quillmar_attribution_release(handle.pointer)
  }

  /// Chooses what goes beyond the usual behaviour. Before `enableASAAttributionTracking`.
  public func setOptions(_ options: QuillmarOptions) {
    var options = options.forC
    quillmar_attribution_set_options(handle.pointer, &options)
  }

  /// Starts to listen for subscription updates (from iOS 15), and fetches the attribution if it is not stored yet.
  /// Reads the settings on the calling thread. Enabling again starts anew; updates that wait for their turn are
  /// dropped then.
  public func enableASAAttributionTracking() {
    quillmar_attribution_enable(handle.pointer)
  }

  /// Ends the listening. A purchase that is being sent still finishes. What is stored is kept.
  public func disableASAAttributionTracking() {
    quillmar_attribution_disable(handle.pointer)
  }

  /// How the attribution is, and why the last attempt to fetch it failed; nil when none has.
  public var health: (status: AttributionStatus, error: String?) {
    var health = quillmar_attribution_health()
    health.size = MemoryLayout.size(ofValue: health)
    quillmar_attribution_get_health(handle.pointer, &health)
    let error = text { quillmar_attribution_copy_error(handle.pointer, $0, $1) }
    return (AttributionStatus(rawValue: health.status) ?? .notEnabled, error.isEmpty ? nil : error)
  }

  /// How many subscription updates went which way since the instance was made.
  public var statistics: QuillmarASAAttributionStatistics {
    var counts = quillmar_attribution_statistics()
    counts.size = MemoryLayout.size(ofValue: counts)
    quillmar_attribution_get_statistics(handle.pointer, &counts)
    return QuillmarASAAttributionStatistics(
      sent: counts.sent, failed: counts.failed, unverified: counts.unverified, skipped: counts.skipped,
      dropped: counts.dropped)
  }

  /// While `paused`, no request for the attribution and none with a purchase is begun; see `Quillmar.setNetworkPaused`.
  public func setNetworkPaused(_ paused: Bool) {
    quillmar_attribution_set_network_paused(handle.pointer, paused)
  }

  /// Waits until no request is in flight and each update that came has been dealt with, for at most `timeout` seconds.
  /// For tests.
  public func drain(timeout: TimeInterval) -> Bool {
    quillmar_attribution_drain(handle.pointer, milliseconds(timeout))
  }
}
