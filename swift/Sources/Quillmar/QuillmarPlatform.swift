import CQuillmar
import Foundation

/// What can be chosen about a platform. Nil: the default.
public struct QuillmarPlatformOptions: Equatable, Sendable {
  /// Where the library keeps its files, instead of the app's folders.
  public var dataDirectory: String?
  /// The base URL of the event service, such as "https://your-service".
  public var serviceUrl: String?
  /// Where attribution tokens are exchanged.
  public var attributionUrl: String?
  /// The size that the body of an answer may have.
  public var maxAnswerBytes: Int?
  /// Connections at a time to a service without HTTP/2.
  public var maxConnections: Int?
  /// False: no requests over a network in Low Data Mode; they fail with "no network" and are for the outbox of
  /// `QuillmarOptions.reliableDelivery`. On Apple systems only.
  public var allowsConstrainedNetwork = true
  /// False: no requests over a network that costs, such as a mobile one; likewise.
  public var allowsExpensiveNetwork = true
  /// In place of the device's, such as "17.4.1": which interfaces of the ad networks are used. For tests.
  public var systemVersion: String?

  /// All defaults.
  public init() {}
}

/// What is outside of the library: the system's adapters, with those that only Swift can offer.
public final class QuillmarPlatform: Sendable {
  let handle: Handle

  /// The system's adapters with these choices.
  public init(_ options: QuillmarPlatformOptions = QuillmarPlatformOptions()) {
    var platform: OpaquePointer?
    options.withC { quillmar_platform_create($0, &platform) }
    handle = Handle(platform)
    URLSessionTransport.install(on: handle, options)
    installAdAttributionKit(on: handle)
    installSubscriptionUpdates(on: handle)
    LogLines.shared.install(on: handle)
  }

  deinit {
    quillmar_platform_release(handle.pointer)
  }

  private static let isChosen = Locked(false)

  /// Makes it the platform of `Quillmar.shared` and `QuillmarASAAttribution.shared`. Before their first use: an
  /// instance that exists keeps its platform.
  public func useForSharedInstances() {
    Self.isChosen.with {
      quillmar_set_shared_platform(handle.pointer)
      $0 = true
    }
  }

  /// The default one, when the app has chosen none.
  static func chooseForSharedInstances() {
    isChosen.with {
      if !$0 {
        let platform = QuillmarPlatform()
        withExtendedLifetime(platform) { _ = quillmar_set_shared_platform(platform.handle.pointer) }
        $0 = true
      }
    }
  }
}

extension QuillmarPlatformOptions {
  fileprivate func withC(_ body: (UnsafePointer<quillmar_platform_options>) -> Void) {
    let texts = [dataDirectory, serviceUrl, attributionUrl, systemVersion].map { $0.flatMap { strdup($0) } }
    defer { texts.forEach { free($0) } }
    var options = quillmar_platform_options()
    options.size = MemoryLayout.size(ofValue: options)
    options.data_directory = UnsafePointer(texts[0])
    options.service_url = UnsafePointer(texts[1])
    options.attribution_url = UnsafePointer(texts[2])
    options.system_version = UnsafePointer(texts[3])
    options.max_answer_bytes = UInt64(max(maxAnswerBytes ?? 0, 0))
    options.max_connections = UInt32(clamping: maxConnections ?? 0)
    body(&options)
  }
}
