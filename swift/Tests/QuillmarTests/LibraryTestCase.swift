import XCTest

@testable import Quillmar

/// The library over the C interface, with a service on the loopback interface and the adapters of the package.
class LibraryTestCase: XCTestCase {
  private let folder = TemporaryFolder()

  private static func configuration(fineValue: Int) -> String {
    """
    {"app_id": "app-1", "sdk_enabled": true, "lockWindows": {}, "values": [{"key": "purchase", "windows": {"window0": {
      "fineValue": {"value": \(fineValue),
                    "requiredEvents": [{"name": "purchase", "revenueMin": 9, "revenueMax": 10}]},
      "coarseValue": {"value": "medium", "requiredEvents": [{"name": "purchase", "revenueMin": 9, "revenueMax": 10}]}
    }}}]}
    """
  }

  func serve(fineValue: Int = 40) -> LoopbackServer {
    let server = LoopbackServer {
      let isConfiguration = $0.target == "/ios/config"
      return .status(
        200, isConfiguration ? Self.configuration(fineValue: fineValue) : #"{"status":"success","message":"ok"}"#)
    }
    addTeardownBlock { server.stop() }
    return server
  }

  func platform(_ server: LoopbackServer) -> QuillmarPlatform {
    var options = QuillmarPlatformOptions()
    options.dataDirectory = folder.path
    options.serviceUrl = server.url
    options.attributionUrl = server.url
    options.systemVersion = "18.0"
    return QuillmarPlatform(options)
  }

  override func setUp() {
    Quillmar.resetStaticState()
  }
}
