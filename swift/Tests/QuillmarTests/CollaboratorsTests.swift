#if os(Linux)  // where AdAttributionKit is a stand-in that tells what it was told
  import AdAttributionKit
  import CQuillmar
  import XCTest

  @testable import Quillmar

  final class CollaboratorsTests: LibraryTestCase {
    private final class Fake: ConversionValuesRepositoryProtocol, VerificationKeyRepositoryProtocol,
      EventServerLogRepositoryProtocol, ConversionTrackingManagerProtocol
    {
      let told = Locked<[String]>([])
      func fetchAndSaveConversionValues() async throws { throw CollaboratorError(errorDescription: "not now") }
      func fetchAllConversionValues() throws -> ConversionValues {
        let fine = ConversionValues.FineValue(value: 12, requiredEvents: [.init(name: "known")])
        return ConversionValues(values: [.init(key: "rule", windows: ["window0": .init(fineValue: fine)])])
      }
      func fetchVerificationKey() -> String? { "a key" }
      func save(verificationKey: String) { told.with { $0.append("save \(verificationKey)") } }
      func logEvent(_ event: String) async throws -> Bool {
        if event == "refused" { throw CollaboratorError(errorDescription: "no") }
        return event != "not asked"
      }
      func send(
        conversionValue rule: ConversionValues.ConversionValue, for window: ConversionValues.Window,
        forceLockWindow: Bool
      ) {
        told.with { $0.append("send \(rule.key) \(rule.windows["window0"]?.fineValue?.value ?? -1) \(window)") }
      }
    }

    func testObjectsAndAnotherSharedInstanceStandInForTheLibrarysOwn() async throws {
      StandInPostbacks.clear()
      let server = serve()
      let events = QuillmarFactory.createQuillmar(platform: platform(server))
      events.configure("key-1")
      XCTAssertTrue(events.drain(timeout: 30))
      let (values, log) = (events.conversionValuesRepository, events.eventServerLogRepository)
      let manager = events.conversionTrackingManager
      var fake: Fake? = Fake()
      let told = fake?.told
      events.conversionValuesRepository = fake
      events.eventServerLogRepository = fake
      events.verificationKeyRepository = fake
      events.conversionTrackingManager = fake
      XCTAssertTrue(events.conversionTrackingManager as? Fake === fake)
      for event in ["refused", "not asked", "known"] {
        events.sendEvent(event: event)
        XCTAssertTrue(events.drain(timeout: 30))
      }
      let fetched: Void? = try? await LibraryConversionValues(own: asSeen(events, 0)).fetchAndSaveConversionValues()
      XCTAssertTrue(fetched == nil && LibraryVerificationKey(own: asSeen(events, 1)).fetchVerificationKey() == "a key")
      LibraryVerificationKey(own: asSeen(events, 1)).save(verificationKey: "key-2")
      XCTAssertEqual(told?.with { $0 }, ["send rule 12 window0", "save key-2"])
      XCTAssertEqual(events.statistics, QuillmarStatistics(sent: 3, dropped: 0, parked: 0, logged: 1, failed: 1))
      events.conversionValuesRepository = values
      events.eventServerLogRepository = log
      events.verificationKeyRepository = nil
      XCTAssertNil(events.verificationKeyRepository)
      weak var gone = fake
      fake = nil
      events.conversionTrackingManager = manager
      XCTAssertTrue(eventually { gone == nil })
      try await values?.fetchAndSaveConversionValues()
      let rule = try XCTUnwrap(try values?.fetchAllConversionValues().values.first)
      manager?.send(conversionValue: rule, for: .window0, forceLockWindow: true)
      XCTAssertTrue(eventually { StandInPostbacks.taken.map(\.fineConversionValue) == [40] })
      let accepted = try await log?.logEvent("again", identifier: "id-1")
      XCTAssertTrue(accepted == true && server.requests.last?.body.contains(#""event_id":"id-1""#) == true)
      Quillmar.shared = events
      XCTAssertTrue(Quillmar.shared === events)
      XCTAssertEqual(Quillmar(quillmar_shared()).quillmarVerificationKey, "key-1")
      Quillmar.resetShared()
      XCTAssertFalse(Quillmar.shared === events)
      Quillmar.resetShared()
    }

    /// A collaborator as the library sees it, also when it is an object of ours.
    private func asSeen(_ events: Quillmar, _ kind: quillmar_collaborator_kind) -> LibraryCollaborator {
      LibraryCollaborator(quillmar_get_collaborator(events.handle.pointer, kind)!)
    }
  }
#endif
