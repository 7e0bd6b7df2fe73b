#if os(Linux)  // where StoreKit and AdAttributionKit are stand-ins that can be told what to do
  import AdAttributionKit
  import StoreKit
  import XCTest

  @testable import Quillmar

  final class AppleModulesTests: LibraryTestCase {
    override func setUp() {
      super.setUp()
      StandInPostbacks.clear()
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

    func testTellsWhatTheAdNetworkRefuses() async {
      let seen = Locked<[String]>([])
      let listening = Task { [lines = Quillmar.logLines] in
        for await line in lines { seen.with { $0.append(line.text) } }
      }
      let events = QuillmarFactory.createQuillmar(platform: platform(serve(fineValue: 63)))
      events.logLevel = .error
      events.configure("key-1")
      events.sendEvent(event: "purchase", params: [.revenue: 9.5])
      XCTAssertTrue(eventually { seen.with { $0.contains { $0.contains("The value is refused.") } } })
      listening.cancel()
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

    /// As `eventually`, on the main thread, whose work goes on meanwhile.
    private func spin(_ condition: () -> Bool) -> Bool {
      let end = Date() + 30
      while !condition() && Date() < end {
        _ = RunLoop.main.run(mode: .default, before: Date() + 0.01)
      }
      return condition()
    }
  }
#endif
