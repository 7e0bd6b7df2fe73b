import XCTest

@testable import Quillmar

final class QuillmarTests: LibraryTestCase {
  func testTellsItsStateAndForgetsIt() {
    let events = QuillmarFactory.createQuillmar(platform: platform(serve()))
    XCTAssertFalse(events.isInitialized || events.hasFetchedConversionValues)
    XCTAssertNil(events.state.appId)
    let key = String(repeating: "ключ", count: 100)  // longer than a buffer of the usual size
    events.logLevel = .debug
    let told = Locked(0)
    events.setHealthObserver { health in told.with { $0 += health.configurationAge == nil ? 0 : 1 } }
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
    XCTAssertTrue(eventually { told.with { $0 > 0 } })
    events.setHealthObserver(nil)
    Quillmar.isVerificationKeyInvalid = true
    Quillmar.consecutiveAPIFailures = 9
    XCTAssertFalse(events.state.isVerificationKeyValid)
    events.reset()
    XCTAssertFalse(events.isInitialized || events.hasFetchedConversionValues || Quillmar.isVerificationKeyInvalid)
    XCTAssertEqual(Quillmar.consecutiveAPIFailures, 0)
    XCTAssertEqual(events.quillmarVerificationKey, "")
    XCTAssertNil(events.state.appId)
  }

  func testTellsDebugBuildsItsLog() async {
    let seen = Locked<[LogLine]>([])
    let listening = Task { [lines = Quillmar.logLines] in
      for await line in lines { seen.with { $0.append(line) } }
    }
    let events = QuillmarFactory.createQuillmar(platform: platform(serve()))
    events.logLevel = .debug
    events.configure("key-1")
    XCTAssertTrue(eventually { seen.with { $0.contains { $0.severity == .debug && $0.text.contains("Starting to") } } })
    listening.cancel()
    await listening.value
    XCTAssertEqual(LogLines.shared.count, 0)
    XCTAssertTrue(events.drain(timeout: 30))
  }

  func testSharedInstancesUseTheChosenPlatform() {
    QuillmarPlatform.chooseForSharedInstances()  // gives way to the app's choice
    let server = serve()
    platform(server).useForSharedInstances()
    Quillmar.shared.configure("shared-key")
    Quillmar.shared.sendEvent(event: "session")
    XCTAssertTrue(Quillmar.shared.waitUntilDelivered(timeout: 30))
    XCTAssertTrue(Quillmar.shared.drain(timeout: 30))
    XCTAssertEqual(Quillmar.shared.health.lastLogged?.name, "session")
    XCTAssertEqual(Quillmar.shared.health.ended[.logged], Quillmar.shared.statistics.logged)
    XCTAssertEqual(server.requests.map(\.headers["authorization"]), ["shared-key", "shared-key"])
  }
}
