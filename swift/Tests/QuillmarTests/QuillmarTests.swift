import AdAttributionKit
import StoreKit
import XCTest

@testable import Quillmar

/// The library over the C interface, with a service on the loopback interface and the adapters of the package.
final class QuillmarTests: XCTestCase {
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

  private func serve(fineValue: Int = 40) -> LoopbackServer {
    let server = LoopbackServer {
      let isConfiguration = $0.target == "/ios/config"
      return .status(
        200, isConfiguration ? Self.configuration(fineValue: fineValue) : #"{"status":"success","message":"ok"}"#)
    }
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

  override func setUp() {
    StandInPostbacks.clear()
    Quillmar.resetStaticState()
  }

  func testReportsEventsAndConversionValues() async throws {
    let rows: [(value: any EventValue, fits: Bool)] = [
      (9.99, true), (10, true), (UInt8(9), true), (11.5, false), (UInt64.max, false), (true, false), ("text", false),
    ]
    for row in rows {
      StandInPostbacks.clear()
      let server = serve()
      let events = QuillmarFactory.createQuillmar(platform: platform(server))
      events.configure("key-1")
      events.sendEvent(event: "purchase", params: [.revenue: row.value])
      XCTAssertTrue(events.waitUntilDelivered(timeout: 30))
      XCTAssertTrue(events.drain(timeout: 30))
      let sent = try XCTUnwrap(server.requests.first { $0.target == "/ios/events" })
      XCTAssertEqual(sent.method, "POST")
      XCTAssertEqual(sent.headers["authorization"], "key-1")
      XCTAssertTrue(sent.body.contains(#""event_name":"purchase""#), sent.body)
      let taken = StandInPostbacks.taken
      XCTAssertEqual(taken.map(\.fineConversionValue), row.fits ? [40] : [], "\(row.value)")
      XCTAssertTrue(taken.allSatisfy { $0.coarseConversionValue == .medium && !$0.lockPostback })
      XCTAssertEqual(events.statistics, QuillmarStatistics(sent: 1, dropped: 0, parked: 0, logged: 1, failed: 0))
      events.clearTrackedEvents()
    }
  }

  func testTellsItsStateAndForgetsIt() {
    let events = QuillmarFactory.createQuillmar(platform: platform(serve()))
    XCTAssertFalse(events.isInitialized || events.hasFetchedConversionValues)
    XCTAssertNil(events.state.appId)
    let key = String(repeating: "ключ", count: 100)  // longer than a buffer of the usual size
    events.logLevel = .debug
    events.configure(key)
    XCTAssertTrue(events.drain(timeout: 30))
    XCTAssertEqual(events.quillmarVerificationKey, key)
    XCTAssertTrue(events.isInitialized && events.hasFetchedConversionValues)
    XCTAssertEqual(
      events.state,
      QuillmarState(
        window: 0, appId: "app-1", isInitialized: true, hasFetchedConversionValues: true, isEnabled: true,
        isVerificationKeyValid: true))
    XCTAssertEqual(events.logLevel, .debug)
    Quillmar.isVerificationKeyInvalid = true
    Quillmar.consecutiveAPIFailures = 9
    XCTAssertFalse(events.state.isVerificationKeyValid)
    events.reset()
    XCTAssertFalse(events.isInitialized || events.hasFetchedConversionValues || Quillmar.isVerificationKeyInvalid)
    XCTAssertEqual(Quillmar.consecutiveAPIFailures, 0)
    XCTAssertEqual(events.quillmarVerificationKey, "")
    XCTAssertNil(events.state.appId)
  }

  func testPostbacksKeepTheirOrder() {
    let queue = PostbackQueue()
    for value in 1...5 {
      queue.add(.init(fine: value, coarse: -1, lock: value == 5, completion: Handle(nil)))
    }
    XCTAssertTrue(spin { StandInPostbacks.taken.count == 5 })
    XCTAssertEqual(StandInPostbacks.taken.map(\.fineConversionValue), [1, 2, 3, 4, 5])
    XCTAssertEqual(StandInPostbacks.taken.map(\.lockPostback), [false, false, false, false, true])
    XCTAssertNil(StandInPostbacks.taken[0].coarseConversionValue)
  }

  func testTellsDebugBuildsItsLog() async {
    let lines = Quillmar.logLines
    let events = QuillmarFactory.createQuillmar(platform: platform(serve(fineValue: 63)))
    events.logLevel = .debug
    events.configure("key-1")
    events.sendEvent(event: "purchase", params: [.revenue: 9.5])
    var seen: [LogLine] = []
    for await line in lines {
      seen.append(line)
      if line.text.contains("The value is refused.") { break }  // what the ad network said
    }
    XCTAssertEqual(seen.last?.severity, .error)
    XCTAssertTrue(seen.contains { $0.severity == .debug && $0.text.contains("Starting network request") })
    XCTAssertTrue(events.drain(timeout: 30))
  }

  func testReportsVerifiedPurchasesWhileItListens() async throws {
    let server = serve()
    let platform = platform(server)
    let events = QuillmarFactory.createQuillmar(platform: platform)
    events.configure("key-1")
    XCTAssertTrue(events.drain(timeout: 30))
    var attribution: QuillmarASAAttribution? = QuillmarFactory.createQuillmarASAAttribution(platform: platform)
    attribution?.enableASAAttributionTracking()
    XCTAssertTrue(eventually { StandInStore.listeners == 1 })
    StandInStore.post(id: 1, transaction: #"{"id":1}"#, isVerified: false)
    StandInStore.post(id: 2, transaction: #"{"id":2}"#, renewalInfo: #"{"autoRenewStatus":1}"#, state: 5)
    StandInStore.post(id: 3, transaction: #"{"id":3}"#, isRenewalVerified: false)
    XCTAssertTrue(eventually { attribution?.statistics.sent == 1 && attribution?.statistics.unverified == 2 })
    let purchases = server.requests.filter { $0.target == "/ios/events" }.map(\.body)
    XCTAssertEqual(purchases.count, 1)
    for part in [#""transaction":{"id":2}"#, #""renewal_info":{"autoRenewStatus":1}"#, #""state":5"#] {
      XCTAssertTrue(purchases[0].contains(part), "\(part) in \(purchases)")
    }
    attribution?.disableASAAttributionTracking()
    XCTAssertTrue(eventually { StandInStore.listeners == 0 })
    attribution?.enableASAAttributionTracking()
    XCTAssertTrue(eventually { StandInStore.listeners == 1 })
    attribution = nil
    XCTAssertTrue(eventually { StandInStore.listeners == 0 })
  }

  func testSharedInstancesUseTheChosenPlatform() {
    let server = serve()
    platform(server).useForSharedInstances()
    Quillmar.shared.configure("shared-key")
    Quillmar.shared.sendEvent(event: "session")
    XCTAssertTrue(Quillmar.shared.waitUntilDelivered(timeout: 30))
    XCTAssertTrue(Quillmar.shared.drain(timeout: 30))
    XCTAssertEqual(server.requests.map(\.headers["authorization"]), ["shared-key", "shared-key"])
    QuillmarASAAttribution.shared.enableASAAttributionTracking()
    XCTAssertTrue(eventually { StandInStore.listeners == 1 })
    QuillmarASAAttribution.shared.disableASAAttributionTracking()
    XCTAssertTrue(eventually { StandInStore.listeners == 0 })
  }

  /// As `eventually`, on the main thread, whose work goes on meanwhile.
  private func spin(_ condition: () -> Bool) -> Bool {
    let end = Date() + 30
    while !condition() && Date() < end {
      _ = RunLoop.main.run(mode: .default, before: Date() + 0.01)
    }
    return condition()
  }
}
