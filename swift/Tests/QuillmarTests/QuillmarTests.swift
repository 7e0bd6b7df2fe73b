import AdAttributionKit
import CQuillmar
import StoreKit
import XCTest

@testable import Quillmar

/// The library over the C interface, with a service on the loopback interface and the adapters of the package.
final class QuillmarTests: XCTestCase {
  private let folder = TemporaryFolder()

  private static let configuration = """
    {"app_id": "app-1", "enabled": true, "values": [{"key": "purchase", "windows": {
      "window0": {"fineValue": {"value": 40, "requiredEvents": [{"name": "purchase", "minRevenue": 9, "maxRevenue": 10}]},
                  "coarseValue": {"value": "medium", "requiredEvents": [{"name": "purchase"}]}},
      "window1": {}, "window2": {}}}]}
    """

  private func serve() -> LoopbackServer {
    let server = LoopbackServer { $0.target == "/ios/config" ? .status(200, Self.configuration) : .status(200, "{}") }
    addTeardownBlock { server.stop() }
    return server
  }

  private func platform(_ server: LoopbackServer) -> QuillmarPlatform {
    var options = QuillmarPlatformOptions()
    options.dataDirectory = folder.path
    options.serviceUrl = server.url
    options.attributionUrl = server.url
    options.systemVersion = "18.0"
    return QuillmarPlatform(options)
  }
}
